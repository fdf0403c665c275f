/* A minimal consumer of the installed package: allocate, call, check, free. */
#include <stdio.h>

#include "roki.h"

int main(void) {
    int step = 0;
    const RokLibraryVersion* v = rokiGetLibVersion();
    Rok8u* img = rokiMalloc_8u_C1(640, 480, &step);
    if (!img) {
        fprintf(stderr, "allocation failed\n");
        return 1;
    }
    printf("%s %s: 640x480 8u C1 image, step %d\n", v->Name, v->Version, step);
    rokiFree(img);
    return step == 640 ? 0 : 1;
}
