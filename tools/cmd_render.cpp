#include <iostream>

#include "commands.h"

int cmdRender(int, char**) {
    std::cerr << "qbcode render: not available in this build" << std::endl;
    return 2;
}
