#include "io/file.h"
