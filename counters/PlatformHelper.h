// The platform helper interfaces the counters machines call (see
// vornhelper/VornHelper.h for the operations and their duties).
#pragma once

#include "vornhelper/VornHelper.h"
