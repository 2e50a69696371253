// What the parts of the index share: reading the annotations of compiled modules.
#pragma once

#include <libyang/libyang.h>

#include <string_view>

// The argument of the last statement of lumora-annotations with this name among the instances given (a sized
// array of libyang's, or null); empty if there is none. A statement of a grouping stands before the node's
// own.
std::string_view schema_annotation(const lysc_ext_instance *p_instances, std::string_view name);
