#include "mesh/export_data.h"
