// Bounded copy of texts.
#pragma once

#include <cstddef>

// Copies src into dst of size bytes, cut to fit and always terminated; a size of 0 writes nothing. Returns
// the length of src, so that a result of size or more tells that the text was cut.
size_t lum_strlcpy(char *dst, const char *src, size_t size);
