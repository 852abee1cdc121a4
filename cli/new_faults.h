// Tells what the result of an operation has and its model had not.
#pragma once

#include "job/new_faults.h"
