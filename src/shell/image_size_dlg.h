#pragma once

#include <functional>
#include <string>

class CLayerStack;
class IUiServices;
class QWidget;

// Runs a command text the way a menu item does (the main frame's RunCommand) and answers the executor's result.
using CommandRunner = std::function<int(const std::string& text)>;

// The image size dialog: width and height (linked by the document's proportions while "Keep proportions" is
// ticked), the scaling method (nearest, bilinear, bicubic; bicubic when it opens) and the warning that scaling
// loses detail. OK sends "Doc_ImageSize('w','h','method')", which scales every layer and records "His_ImageSize".
// A side outside 1..20000 (or not a number) is refused with the "sizerange" text and the dialog stays open, the
// document untouched. Widgets carry object names ("width", "height", "method", "keepAspect") for the tests.
// True when the command ran and succeeded.
bool RunImageSizeDialog(QWidget* parent, const CLayerStack& document, IUiServices& services, const CommandRunner& run);
