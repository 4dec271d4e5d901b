// Settings: the one instance, initialised before main runs.
#include "Settings.h"

Settings settings;
