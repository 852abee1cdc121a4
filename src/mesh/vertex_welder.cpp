#include "base/array.h"
