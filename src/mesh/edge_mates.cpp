#include "mesh/edge_mates.h"
