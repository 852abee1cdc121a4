#include "mesh/build_f.h"
