#include "pell/TimerWheel.h"
