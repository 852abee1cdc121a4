#include "repair/degenerate.h"
