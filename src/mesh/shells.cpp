#include "mesh/shells.h"
