#include "repair/detect.h"
