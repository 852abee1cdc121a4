// What is never written.
#pragma once

#include "job/refusal.h"
