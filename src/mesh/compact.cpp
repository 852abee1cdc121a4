#include "mesh/compact.h"
