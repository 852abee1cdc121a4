#include "io/stl.h"
