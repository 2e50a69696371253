// The program's own abort. A library that gives up leaves the same trace as a failed assertion of ours: a
// line on standard output and a core dumped at a null store.
//
// A target of its own, since it has to be linked as an object to serve the shared libraries, and since
// sanitizer builds must do without it: their runtime ends a report in abort, which must not come back here.
// What the C library calls inside itself stays with its own.
#include "common/lum_assert_private.h"

#include <cstdlib>

#define TEXT_OF(number) #number
#define TEXT_OF_LINE(line) TEXT_OF(line)

extern "C" void abort() noexcept
{
    lum_stop_print(__FILE__ ":" TEXT_OF_LINE(__LINE__) ": failed aborted \n");
    lum_stop();
}
