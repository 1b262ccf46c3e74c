// The version of the product: the one place that names it. Plain macros, for the resource compiler reads them too.
#pragma once

#define LAUNCHER_VERSION_NUMBERS 1, 0, 0, 0
#define LAUNCHER_VERSION_TEXT "1.0.0"
