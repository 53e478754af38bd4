// Both interfaces are C; this file compiles or does not.
#include "GBSSlave.h"
#include "GOS.h"
