#include "gk/GKModuleLibrary.h"
#include "modules/battery/GKBattery.h"
#include "modules/fsr/GKFsr.h"
#include "modules/robotpose/GKRobotPose.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sonar/GKSonar.h"

// The sensors come last, since their loop drives the other four.
GK_MODULE_LIBRARY(GK::GKSonar, GK::GKFsr, GK::GKRobotPose, GK::GKBattery, GK::GKSensors)
