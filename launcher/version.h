// The product's version, the one place for it: the resource script includes it, and the build takes the manifest's
// version from it. Plain macros, for the resource compiler reads them too. The check of the built file holds the two
// forms together.
#pragma once

#define LAUNCHER_VERSION_NUMBERS 1, 0, 0, 0
#define LAUNCHER_VERSION_TEXT "1.0.0"
