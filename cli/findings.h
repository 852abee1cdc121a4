// Everything that `check` tells about a mesh.
#pragma once

#include "job/findings.h"
