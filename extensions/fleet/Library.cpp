#include "extensions/fleet/GKFleet.h"
#include "gk/GKModuleLibrary.h"

GK_MODULE_LIBRARY(GK::GKFleet)
