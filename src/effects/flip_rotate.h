#pragma once

class COLImage;

// Mirrors the image in place, whole pixels: left to right when horizontal, else top to bottom.
void FlipImage(COLImage& image, bool horizontal);

// A quarter turn into destination, which becomes height x width: counter-clockwise when left, else clockwise.
// 1, or 0 when the destination cannot be created.
int RotateImageQuarter(const COLImage& source, COLImage& destination, bool left);

class COLChannel;
class CLayerStack;

// The same for a plane.
void FlipChannel(COLChannel& channel, bool horizontal);
int RotateChannelQuarter(const COLChannel& source, COLChannel& destination, bool left);

// Turns the whole document a quarter: every layer's picture and position, the selection and the saved channels
// of the document's size; the document takes the turned size. All or nothing: 1, or 0 (nothing changed) when
// memory runs out or there is no base layer.
int RotateDocument(CLayerStack& stack, bool left);

// Mirrors the whole document: every layer's picture and position, the selection and the saved channels.
// 1, or 0 without a base layer.
int FlipDocument(CLayerStack& stack, bool horizontal);
