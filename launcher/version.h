// The version of the product. The manifest repeats it; the check of the built file holds the two together. Plain
// macros, for the resource compiler reads them too.
#pragma once

#define LAUNCHER_VERSION_NUMBERS 1, 0, 0, 0
#define LAUNCHER_VERSION_TEXT "1.0.0"
