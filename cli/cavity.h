// What operations share that put cavities into a model.
#pragma once

#include "job/cavity.h"
