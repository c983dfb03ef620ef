#pragma once

// The canvas-to-tool interfaces live with the tools, which use them without the window library.
#include "tools/view_sink.h"
