// The note of every module library, whatever its own sources include.
#include "gk/GKModuleLibrary.h"
