#include "common/strlcpy.h"

#include <algorithm>
#include <cstring>

size_t lum_strlcpy(char *dst, const char *src, size_t size)
{
    size_t length = strlen(src);
    if (size == 0)
        return length;
    size_t copied = std::min(length, size - 1);
    memcpy(dst, src, copied);
    dst[copied] = '\0';
    return length;
}
