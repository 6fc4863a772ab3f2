#include "PrintingScoreCal.h"
