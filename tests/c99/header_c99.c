/* Compiled as strict C99: the public headers must not need C++ or extensions. */
#include "roki.h"
#include "rokcore.h"

int header_c99_uses_types(void);
int header_c99_uses_types(void) {
    RokiSize size = {1, 1};
    Rok32fc c = {0.0f, 0.0f};
    const RokLibraryVersion* v = 0;
    (void)v;
    return size.width + (int)c.re + rokStatusOk;
}
