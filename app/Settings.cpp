// Settings: the one instance, initialised before main runs.
#include "app/Settings.h"

Settings settings;
