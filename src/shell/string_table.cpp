#include "shell/string_table.h"

#include <cstdlib>
#include <iterator>
#include <strings.h>

namespace {

struct TextRow {
    const char* key;
    const char* chinese;
    const char* english;
};

// The table in its fixed order. Web addresses point at the help pages shipped in the program's data folder, so
// that help works without a network; a page may link further out.
const TextRow kRows[] = {
    {"Tittle", "Velmorando", "Velmorando"},
    {"open", "打开文件", "Open a file"},
    {"save", "存储和导出", "Save or export"},
    {"hideview", "隐藏或显示侧面板", "Hide or show the side panels"},
    {"tablayer", "图层", "Layers"},
    {"tabmask", "通道", "Channels"},
    {"tabhistory", "历史记录", "History"},
    {"tabwizard", "帮助", "Help"},
    {"can't open", "不能打开文件", "Cannot open the file"},
    {"createsel", "创建一个复杂选择区域", "Create a complex selection"},
    {"nohelp", "目前没有什么帮助信息，请选择某些操作,譬如打开文件之类",
     "No help at the moment. Choose something to do, for example open a file."},
    {"helpcrop", "拖动鼠标框出要保留的区域，拖动角可以调整大小，拖动内部移动它。勾选自由形状可以分别拖动四个角来校正透视。\n双击区域内部或按回车完成裁剪，按Esc取消。",
     "Drag to frame the part to keep; drag a corner to resize the frame, inside to move it. With Free shape each "
     "corner moves alone, to straighten a perspective.\nDouble-click inside or press Enter to crop, Esc to cancel."},
    {"helppolygonsel",
     "通过连续左键点击选区边界，获得选区。右键点击则可退回上一个拐点。\n移动到起始点点击或者在中途双击可以结束选择。",
     "Click along the border of the area, point by point; a right click takes back the last corner.\nClick the "
     "starting point again, or double-click, to close the selection."},
    {"normalsel", "普通选择", "Plain selection"},
    {"puresel", "背景是单一颜色的照片，例如蓝幕或绿幕前拍摄的人像，用色度键法抠图。",
     "For photos taken against a single-coloured backdrop, such as a blue or green screen: chroma key."},
    {"inoutsel", "背景复杂的照片：画出一定属于前景的内轮廓和一定属于背景的外轮廓，由程序计算中间的过渡。",
     "For photos with a busy background: draw an inner contour that is surely foreground and an outer one that is "
     "surely background; the program works out the band between them."},
    {"afteropen", "图片已经打开。点击左上方的按钮开始抠图，或者用图层菜单加入更多的图片。",
     "The picture is open. Press the button at the top left to start a cut-out, or add more pictures with the Layer "
     "menu."},
    {"croptip", "裁剪", "Crop"},
    {"polygonseltip", "多边形选择", "Polygon selection"},
    {"outpolygonseltip", "外轮廓：画出一定属于背景的边界", "Outer contour: draw a line that is surely background"},
    {"inpolygonseltip", "内轮廓：画出一定属于前景的边界", "Inner contour: draw a line that is surely foreground"},
    {"modifypolygonseltip", "修改轮廓", "Edit a contour"},
    {"buildseltip", "根据内外轮廓创建选区", "Build the selection from the inner and outer contours"},
    {"buildseltext", "计算抠图", "Compute the cut-out"},
    {"buildselfail", "无法根据轮廓计算抠图：外轮廓内需要有内轮廓以外的区域，图片也不能太小（约140x140像素以上）。",
     "The cut-out could not be computed: the outer contour must enclose pixels that the inner one does not, and the "
     "picture must be about 140 x 140 pixels or larger."},
    {"bkmodecolor", "单色背景", "Plain colour behind the cut-out"},
    {"bkmodeblock", "方格背景", "Checkerboard behind the cut-out"},
    {"bkmodeimage", "图片背景", "A picture behind the cut-out"},
    {"erasesel", "选区橡皮", "Selection eraser"},
    {"eraseseltip", "在误选为前景的地方涂抹，把它们还给背景。",
     "Paint over what was wrongly taken as foreground to give it back to the background."},
    {"helpfreesel", "按住左键拖动，沿物体边缘画出选区，松开鼠标自动闭合。",
     "Hold the left button and draw around the object; releasing the button closes the outline."},
    {"freeseltip", "自由选择", "Freehand selection"},
    {"helprectsel", "按住左键拖动，画出矩形选区。", "Hold the left button and drag to select a rectangle."},
    {"rectseltip", "矩形选择", "Rectangle selection"},
    {"helproundsel", "按住左键拖动，画出椭圆选区。", "Hold the left button and drag to select an ellipse."},
    {"roundseltip", "椭圆选择", "Ellipse selection"},
    {"helpmagicsel", "点击图片，选中与该点颜色相近的连续区域。宽容度越大，选中的范围越大。",
     "Click the picture to select the connected area of similar colour. A higher tolerance selects more."},
    {"magicseltip", "魔术棒", "Magic wand"},
    {"freepaint", "画笔", "Brush"},
    {"freepainthelp", "用前景色在当前图层上绘画。", "Paint with the foreground colour on the current layer."},
    {"pickbkcolor", "背景色吸管", "Backdrop picker"},
    {"pickbkhelp", "在照片的背景上点击，吸取背景颜色，程序随即开始抠图。",
     "Click the backdrop of the photo to pick its colour; the cut-out starts at once."},
    {"zoom", "缩放", "Zoom"},
    {"zoomhelp",
     "按住Shift缩小，按住Ctrl成为漫游工具。\n在任何时候，滚动鼠标滚轮或者利用热键Ctrl +/-可以实现放大缩小视图。",
     "Hold Shift to zoom out, Ctrl to pan.\nAt any time the mouse wheel or Ctrl +/- zooms the view."},
    {"bkmodemask", "显示蒙版", "Show the mask"},
    {"chbk", "更换背景", "Change the background"},
    {"delbk", "删除背景", "Delete the background"},
    {"mask", "输出选区到通道", "Save the selection to a channel"},
    {"sepbk", "分割到新图层", "Separate onto a new layer"},
    {"isbkwarning", "这是背景图层，不能直接在它上面去除背景，将改为更换背景的方式处理。",
     "This is the background layer: its background cannot be removed in place, so the background will be changed "
     "instead."},
    {"except", "发生异常，操作失败", "Something went wrong; the operation failed."},
    {"helptrans", "拖动四个角可以缩放当前图层，拖动内部移动它，在框外拖动旋转它；勾选自由形状可以分别拖动四个角。双击确认，按Esc取消。",
     "Drag the corners to scale the current layer, inside to move it, outside the frame to turn it; with Free "
     "shape each corner moves alone. Double-click to apply, Esc to cancel."},
    {"transtip", "自由变形", "Free transform"},
    {"transerr", "自由变形工具需要在非背景图层上才能使用", "Free transform works on layers above the background only."},
    {"erase", "橡皮擦", "Eraser"},
    {"erasehelp", "在当前图层上涂抹，把涂过的地方变为透明。",
     "Paint over the current layer to make those parts transparent."},
    {"erasewar", "当前图层是隐藏的，请先显示它再擦除。", "The current layer is hidden; show it before erasing."},
    {"algorithm", "算法", "Method"},
    {"olwarning", "Ombra Lens 改变了图片的尺寸，不能取回编辑结果。",
     "Ombra Lens changed the picture's size; its result cannot be taken back."},
    {"TL_new", "新建图层", "New layer"},
    {"TL_delete", "删除图层", "Delete the layer"},
    {"TL_mergedown", "向下合并", "Merge down"},
    {"bm_normal", "正常", "Normal"},
    {"bm_darken", "变暗", "Darken"},
    {"bm_lighten", "变亮", "Lighten"},
    {"bm_color", "颜色", "Colour"},
    {"bm_lum", "亮度", "Luminosity"},
    {"bm_mul", "正片叠底", "Multiply"},
    {"bm_screen", "屏幕", "Screen"},
    {"bm_overlay", "叠加", "Overlay"},
    {"bm_hlit", "强光", "Hard light"},
    {"bm_slit", "柔光", "Soft light"},
    {"bm_dif", "差值", "Difference"},
    {"TL_open", "打开文件到新图层", "Open a file as a new layer"},
    {"His_open", "打开", "Open"},
    {"His_select", "选择", "Select"},
    {"His_selectnone", "取消选择", "Select none"},
    {"His_delete", "删除选区内容", "Delete selection"},
    {"His_deleteinv", "删除非选区内容", "Delete outside"},
    {"Magic_tolerance", "宽容度", "Tolerance"},
    {"His_deletelayer", "删除图层", "Delete layer"},
    {"His_flatimage", "合并全部图层", "Flatten"},
    {"His_layerlocatechange", "调整图层顺序", "Layer order"},
    {"His_layerpropertychange", "图层属性", "Layer properties"},
    {"His_mergedownlayer", "向下合并", "Merge down"},
    {"His_newlayer", "新建图层", "New layer"},
    {"His_openlayer", "打开到新图层", "Open as layer"},
    {"His_selandproc", "抠图", "Cut-out"},
    {"His_curlayer", "选择图层", "Current layer"},
    {"His_bkpicker", "自动去背", "Automatic cut-out"},
    {"His_inout", "自动去背", "Automatic cut-out"},
    {"Ciop_namelimit", "图层的名字应小于32个字节或16个汉字",
     "A layer name must be shorter than 32 bytes (16 Chinese characters)."},
    {"texthelp", "在图片上点击，输入文字。在选项面板中可以选择字体、大小和颜色。",
     "Click the picture and type. The options panel sets the font, size and colour."},
    {"texttip", "文字", "Text"},
    {"His_ImageSize", "图像尺寸", "Image size"},
    {"His_CavasSize", "画布尺寸", "Canvas size"},
    {"movtooltip", "移动", "Move"},
    {"movtoolhelp", "拖动移动当前图层；有选区时拖动移动选区内的内容。方向键可以微调。",
     "Drag to move the current layer, or the selected part when there is a selection. Arrow keys nudge."},
    {"moverror", "移动工具只能在非背景层，或者存在选区的时候使用",
     "The move tool works on layers above the background, or when there is a selection."},
    {"Paste", "粘贴", "Paste"},
    {"His_Feature", "羽化选区", "Feather"},
    {"His_FlipH", "水平翻转", "Flip horizontally"},
    {"His_FlipV", "垂直翻转", "Flip vertically"},
    {"His_RotateRight", "右旋90度", "Rotate right"},
    {"His_RotateLeft", "左旋90度", "Rotate left"},
    {"cameratooltip", "仿制图章", "Clone brush"},
    {"cameratoolhelp", "按住Ctrl点击取样点，然后在要修补的地方涂抹，把取样处的图像复制过来。",
     "Ctrl-click to set the source point, then paint where the picture should be copied to."},
    {"injecttip", "注入点", "Add inner points"},
    {"injecthelp", "在确定属于前景的地方点击，把这些点加入内轮廓。",
     "Click where the picture is surely foreground to add those points to the inner contour."},
    {"injecterr", "请先画出内轮廓。", "Draw an inner contour first."},
    {"smartadjtip", "智能调整", "Smart adjust"},
    {"smartadjhelp",
     "先选取前景和背景的参考颜色，再在过渡带上涂抹，程序按颜色修正透明度。\n按住Shift只增加，按住Ctrl只减少。",
     "Pick a foreground and a background reference colour, then paint over the band to correct the transparency by "
     "colour.\nHold Shift to raise only, Ctrl to lower only."},
    {"smartadjerr", "请先选取前景和背景的参考颜色。", "Pick the foreground and background reference colours first."},
    {"forepainttip", "前景画笔", "Foreground brush"},
    {"forepainthelp", "在误删的前景上涂抹，把原图的像素找回来。",
     "Paint over foreground that was lost to bring the original pixels back."},
    {"fill", "填充选区", "Fill selection"},
    {"cantsel", "需要创建复杂选区的图层，不能带有透明度信息", "The layer to cut out must not have any transparency."},
    {"isbktip", "背景已经打开。请在新图层中调入前景图片。",
     "The background is open. A new layer now takes the foreground picture."},
    {"isforetip", "接下来请选择抠图的方法。", "Now choose how to cut the foreground out."},
    {"olnotfound", "没有找到 Ombra Lens。要查看如何获得它吗？",
     "Ombra Lens was not found. Do you want to see how to get it?"},
    {"oldwonload", "help/companion.htm", "help/companion.htm"},
    {"orgshow", "原图", "Original"},
    {"cropsize", "%d x %d,左:%d 右:%d 上:%d 下:%d", "%d x %d, left:%d right:%d top:%d bottom:%d"},
    {"vmdoc", "工程文件格式(*.vmpd)|*.vmpd||", "Project files (*.vmpd)|*.vmpd||"},
    {"saveerr", "存储文件发生错误，请检查路径和写权限。",
     "The file could not be saved. Check the folder and the permission to write there."},
    {"compressed", "压缩到%.2fK字节", "Compressed to %.2f KB"},
    {"openfiletype",
     "所有支持格式|*.vmpd;*.psd;*.png;*.jpg;*.jpeg;*.bmp;*.gif;*.pcx;*.tif;*.tiff;*.tga|工程文件(*.vmpd)|*.vmpd|"
     "图片文件|*.png;*.jpg;*.jpeg;*.bmp;*.gif;*.pcx;*.tif;*.tiff;*.tga;*.psd||",
     "All supported files|*.vmpd;*.psd;*.png;*.jpg;*.jpeg;*.bmp;*.gif;*.pcx;*.tif;*.tiff;*.tga|Projects "
     "(*.vmpd)|*.vmpd|Pictures|*.png;*.jpg;*.jpeg;*.bmp;*.gif;*.pcx;*.tif;*.tiff;*.tga;*.psd||"},
    {"pluginask", "要把抠图结果送回图像编辑器吗？\n选“是”送回并退出，“否”放弃并退出，“取消”继续编辑。",
     "Send the cut-out back to the image editor?\nYes sends it and quits, No quits without it, Cancel goes on "
     "editing."},
    {"cannotsave", "想存盘吗？您现在看到的只是测试结果，要存盘必须通过确认返回到合成状态才行。",
     "Do you want to save? What you see is only a preview; confirm the cut-out and return to composing first."},
    {"selshink", "缩小选区", "Shrink selection"},
    {"helpdesat", "在当前图层上涂抹，去掉涂过地方的颜色。", "Paint over the current layer to take the colour out."},
    {"desattip", "去色", "Desaturate"},
    {"inpaint", "智能修补", "Smart inpaint"},
    {"inpainterr",
     "修补错误，可能选区太靠近边界，或者无法找到足够修补样本。\n如果靠近边界，建议用画布尺寸功能事先扩展，处理后再裁剪"
     "回原样。",
     "Inpainting failed: the selection may lie too close to the border, or no good samples were found.\nNear the "
     "border, enlarge the canvas first and crop it back afterwards."},
    {"savewar", "此操作将放弃现在的编辑结果，继续吗？", "This will discard your current edits. Continue?"},
    {"onlybaselayer", "此工具只能用于背景图层", "This tool works on the background layer only."},
    {"backtocompose", "为了存储，您打算确定当前抠图结果并返回到合成状态吗？",
     "To save, do you want to confirm the cut-out and return to composing?"},
    {"stroke", "选区描边", "Stroke selection"},
    {"TL_save", "导出图层到文件", "Export the layer to a file"},
    {"leavesel", "确认抠图结果并返回合成状态", "Confirm the cut-out and return to composing"},
    {"movesel", "移动选区", "Move selection"},
    {"pickertip", "吸管", "Colour picker"},
    {"pickerhelp", "在图片上点击，吸取颜色作为前景色。", "Click the picture to take its colour as foreground colour."},
    {"help", "帮助", "Help"},
    {"blurbk", "模糊背景", "Blur the background"},
    {"lensblur", "失焦模糊", "Lens blur"},
    {"batchpure", "批量处理同一单色背景前拍摄的多张照片。",
     "Process many photos taken against the same single-coloured backdrop."},
    {"diffsel", "通过对比含有拍摄目标的图片和原始背景图片的差异，进行抠图",
     "Cut out by comparing a photo with the subject against a photo of the empty background."},
    {"openflatfiletype", "所有支持格式|*.bmp;*.jpg;*.jpeg;*.gif;*.pcx;*.tif;*.tiff;*.tga;||",
     "All supported pictures|*.bmp;*.jpg;*.jpeg;*.gif;*.pcx;*.tif;*.tiff;*.tga;*.png;||"},
    {"batover", "批处理结束，请到指定目录寻找抠图结果PNG文件",
     "The batch is done. The cut-outs are PNG files in the chosen folder."},
    {"lastbat", "完成批处理", "Finish the batch"},
    {"batnext", "下一张 >", "Next >"},
    {"oldplugin", "图像编辑器中的插件版本太旧，请重新安装插件。",
     "The plug-in in the image editor is too old; please install it again."},
    {"oldplugindetect", "发现旧版本的插件，现在安装新版本。",
     "An old plug-in was found; the new one will be installed now."},
    {"normalseltip",
     "按住Shift:加入到现有选择，按Ctrl:从现有选择减去，按空格:放大视图便于选择。用方向键盘可以微调选区位置。",
     "Shift adds to the selection, Ctrl subtracts from it, Space zooms in while you select. Arrow keys nudge the "
     "selection."},
    {"changebkimg", "更换背景图片", "Change the background picture"},
    {"expandsel", "扩大选区", "Expand selection"},
    {"tabBlue1", "参数", "Options"},
    {"tabBlue2", "力度", "Strength"},
    {"tabBlue3", "清理", "Clean-up"},
    {"font", "宋体", "Sans"},
    {"nomask", "现在还没有抠图", "There is no cut-out yet."},
    {"inputnum", "请输入%d-%d的整数", "Enter a whole number from %d to %d."},
    {"homesite", "help/index.htm", "help/index.htm"},
    {"tutorial_smarterase", "help/tutorial_smarterase.htm", "help/tutorial_smarterase.htm"},
    {"tutorial_compose", "help/tutorial_compose.htm", "help/tutorial_compose.htm"},
    {"tutorial_lensblur", "help/tutorial_lensblur.htm", "help/tutorial_lensblur.htm"},
    {"tutorial_inout", "help/tutorial_inout.htm", "help/tutorial_inout.htm"},
    {"tutorial_blue", "help/tutorial_blue.htm", "help/tutorial_blue.htm"},
};

// Texts of this editor's own dialogs and panels, in both languages, after the rows above.
const TextRow kEditorRows[] = {
    {"inpaintrefine", "结构感知修补", "Structure-aware fill"},
    {"inpaintrefinenote", "沿边缘和大块形状补全破洞，适合跨越直线或较大的区域；速度较慢。",
     "Carries edges and large shapes across the hole: better for straight lines and large areas, but slower."},
    {"layerbackground", "背景", "Background"},
    {"layername", "图层%d", "Layer %d"},
    {"allpictures", "所有图片", "All pictures"},
    {"allfiles", "所有文件", "All files"},
    {"blendmode", "混合模式", "Blend"},
    {"opacity", "不透明度", "Opacity"},
    {"expanddlg", "扩展选区", "Expand selection"},
    {"featherdlg", "羽化选择区域", "Feather selection"},
    {"selfeatherdlg", "羽化", "Feather"},
    {"filldlg", "填充选择区域", "Fill selection"},
    {"setcolor", "设置颜色", "Set colour..."},
    {"amountpx", "数量（像素）", "Amount (pixels)"},
    {"featherpx", "羽化半径（像素）", "Feather radius (pixels)"},
    {"strokewidth", "宽度（像素）", "Width (pixels)"},
    {"keepdetail", "保留毛发等细微细节，只影响普通的边缘", "Keep fine detail such as hair; soften plain edges only"},
    {"shrinkfirst", "内缩1个像素", "Shrink by 1 pixel first"},
    {"deflatebusy", "正在按图像分块收缩选区...", "Shrinking the selection to image segments..."},
    {"newpicture", "新建图片", "New picture"},
    {"picwidth", "宽度", "Width"},
    {"picheight", "高度", "Height"},
    {"saveproject", "工程文件，以后可以继续编辑", "Project, to go on later"},
    {"saveprojectbtn", "工程文件...", "Project..."},
    {"withhistory", "包含历史纪录", "Include the history"},
    {"savecomposite", "合成后的图片", "The composed picture"},
    {"savelayer", "当前图层，带透明度", "The current layer, with transparency"},
    {"savelayeredbtn", "分层PSD...", "Layered PSD..."},
    {"savelayeredtip", "每个图层都保存为PSD图层", "Every layer as a Photoshop layer"},
    {"jpegquality", "JPEG质量选择", "JPEG quality"},
    {"jpegqualitylabel", "质量", "Quality"},
    {"highcolour", "高质量彩色", "High-quality colour"},
    {"jpegmeasuring", "正在计算压缩后的大小...", "Measuring the compressed size..."},
    {"printpicture", "打印图片", "Print picture"},
    {"printwidth", "宽度(英寸)", "Width (inches)"},
    {"printheight", "高度(英寸)", "Height (inches)"},
    {"printhalign", "水平对齐", "Horizontal alignment"},
    {"printvalign", "垂直对齐", "Vertical alignment"},
    {"alignleft", "左", "Left"},
    {"aligncentre", "居中", "Centre"},
    {"alignright", "右", "Right"},
    {"aligntop", "上", "Top"},
    {"alignbottom", "下", "Bottom"},
    {"printbtn", "打印...", "Print..."},
    {"olfailed", "无法启动 Ombra Lens。", "Ombra Lens could not be started."},
    {"setcompanion", "Ombra Lens 程序", "Ombra Lens program"},
    {"settings", "设置", "Settings"},
    {"setafteropen", "打开文件后询问下一步做什么", "Ask what to do next after opening a file"},
    {"setpurebk", "单色幕抠图前显示说明", "Explain the chroma key before it starts"},
    {"setdbsel", "内外轮廓抠图前显示说明", "Explain the contour method before it starts"},
    {"setcheckresult", "第一次得到抠图结果后显示检查说明", "Explain how to check the first cut-out"},
    {"inpaintfeather", "羽化选区让过渡自然", "Feather the selection for a natural transition"},
    {"inpaintnote",
     "以修补自然纹理背景上的独立目标效果为佳。在第一次修补不满意时，还可以针对个别不满意地方进行第二次修补或用照相机工"
     "具手工修补。\n\n算法版本 v1.0",
     "Works best on a separate object in front of a natural texture. Where the first result does not please, select "
     "those places and inpaint them again, or touch them up by hand with the clone tool.\n\nAlgorithm version 1.0"},
    {"inpaintwait", "处理中...如果操作支持中断，可按ESC取消", "Working... Press Esc to cancel where the operation allows it."},
    {"dropcontours", "还没有抠图结果。返回合成状态将丢弃内外轮廓，继续吗？",
     "There is no cut-out yet. Returning to composing drops the contours. Continue?"},
    {"dropcutout", "放弃当前抠图结果并返回合成状态吗？", "Drop the cut-out and return to composing?"},
    {"bringapply", "应用到图层", "Apply to the layer"},
    {"bringseparate", "分离到新图层", "Separate to a new layer"},
    {"bringkeep", "保留为选区", "Keep as selection"},
    {"innerbrushtip", "内轮廓画笔", "Inner contour brush"},
    {"innerbrushhelp", "涂抹肯定属于前景的地方，加入内轮廓。按住Ctrl涂抹则从内轮廓擦除。",
     "Paint where the picture is surely foreground to add it to the inner contour. Hold Ctrl to erase from it."},
    {"outerbrushtip", "外轮廓画笔", "Outer contour brush"},
    {"outerbrushhelp", "涂抹肯定属于背景的地方，加入外轮廓。按住Ctrl涂抹则从外轮廓擦除。",
     "Paint where the picture is surely background to add it to the outer contour. Hold Ctrl to erase from it."},
    {"brushdlg", "设置笔刷", "Brush settings"},
    {"brushsize", "大小", "Size"},
    {"brushhard", "硬度", "Hardness"},
    {"brushalpha", "不透明度", "Opacity"},
    {"brushbutton", "点击设置笔刷", "Click to set the brush"},
    {"cropfree", "自由形状", "Free shape"},
    {"cropnoratio", "不锁定比例", "No fixed ratio"},
    {"croporiginal", "原始比例", "Original ratio"},
    {"cropcustom", "自定义", "Custom..."},
    {"cropratiotitle", "自定义比例", "Custom ratio"},
    {"cropwidth", "宽", "Width"},
    {"cropheight", "高", "Height"},
    {"transbad", "四个角交叉或者围成的面积为零，请把它们拖开后再双击。",
     "The corners cross or enclose no area. Drag them apart and double-click again."},
};

// Keys that callers ask for but the Chinese table does not hold (they read as empty there).
const StringRow kEnglishOnly[] = {
    {"expect", "The operation failed."},
    {"inoutoptimize", "Optimise contours"},
    {"afterinoutoptimize", "The contours were snapped to the edges of the picture. Check them, then build the "
                           "selection."},
    {"smartin", "Shrink to segments"},
};

} // namespace

size_t SharedStringRowCount()
{
    return sizeof(kRows) / sizeof(kRows[0]);
}

void FillStringTable(std::vector<StringRow>& rows, ETextLanguage language)
{
    rows.clear();
    rows.reserve(SharedStringRowCount() + std::size(kEditorRows) + std::size(kEnglishOnly));
    for (const TextRow& r : kRows)
        rows.push_back({r.key, language == ETextLanguage::kChinese ? r.chinese : r.english});
    for (const TextRow& r : kEditorRows)
        rows.push_back({r.key, language == ETextLanguage::kChinese ? r.chinese : r.english});
    if (language == ETextLanguage::kEnglish)
        for (const StringRow& r : kEnglishOnly)
            rows.push_back(r);
}

const StringRow* FindStringRow(const std::vector<StringRow>& rows, const std::string& key)
{
    for (const StringRow& r : rows)
        if (strcasecmp(r.m_key.c_str(), key.c_str()) == 0) return &r;
    return nullptr;
}

ETextLanguage ChooseLanguage(const std::string& profileChoice, const std::string& locale)
{
    auto starts = [](const std::string& s, const char* prefix) { return strncasecmp(s.c_str(), prefix, 2) == 0; };
    if (starts(profileChoice, "zh")) return ETextLanguage::kChinese;
    if (starts(profileChoice, "en")) return ETextLanguage::kEnglish;
    return starts(locale, "zh") ? ETextLanguage::kChinese : ETextLanguage::kEnglish;
}

std::string CurrentMessageLocale()
{
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* v = std::getenv(name);
        if (v && *v) return v;
    }
    return {};
}
