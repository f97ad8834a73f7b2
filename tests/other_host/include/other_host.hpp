#pragma once

/// What the library, compiled with hidden names, shares with the program.
#define OTHER_HOST __attribute__((visibility("default")))
