#include <iostream>

#include "commands.h"

int cmdRead(int, char**) {
    std::cerr << "qbcode read: not available in this build" << std::endl;
    return 2;
}
