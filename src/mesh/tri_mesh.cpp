#include "mesh/tri_mesh.h"
