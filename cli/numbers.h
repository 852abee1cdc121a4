// Numbers as people read them.
#pragma once

#include "job/numbers.h"
