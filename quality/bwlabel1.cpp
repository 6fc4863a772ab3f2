#include "bwlabel1.h"
