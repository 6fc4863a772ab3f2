#include <stdio.h>
#include <string.h>

#include <qbcode_hexagon_recognition.h>

int main(void) {
    char banner[64];
    memset(banner, 0, sizeof banner);
    get_version(banner, 63);
    printf("%s\n", banner);
    return strcmp(banner, "Quelbor Recognition Algorithm 0.3.1") == 0 && get_dots_num(5) == 91 ? 0 : 1;
}
