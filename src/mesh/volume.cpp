#include "mesh/volume.h"
