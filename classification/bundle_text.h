// Bundles as text: the format of the catalogue's data file and of every file that a bundle is loaded from.
//
// A bundle is a text of lines. Empty lines and lines that begin with '#' count for nothing; the others are
// columns between bars, with blanks around them dropped. The first line is "bundle | 1 | version": the
// format's number and the bundle's version text. A line "family | name in configuration | name" comes before
// the applications of that family. An application is "id | name in configuration | long name | family |
// attribute, ...".
//
// The reader takes any bytes and stops at the first line that it can't accept. The records of signatures and
// attributes, opaque to the users of qmdpi.h, are declared here because it is the reader that fills them. It
// is also what the build checks the catalogue with, so it needs nothing but the standard library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

inline constexpr size_t BUNDLE_TEXT_MAX_SIZE = 1 << 20;  // bytes
inline constexpr size_t BUNDLE_TEXT_MAX_LINE = 1024;     // bytes
inline constexpr size_t BUNDLE_TEXT_MAX_NAME = 127;      // bytes, of each column but the attributes
inline constexpr size_t BUNDLE_TEXT_MAX_ATTRS = 16;
inline constexpr int BUNDLE_TEXT_FORMAT = 1;

// Ids index tables of 4096 words in shared memory. 1 is traffic that is not classified, in no bundle.
inline constexpr int BUNDLE_TEXT_MIN_ID = 2;
inline constexpr int BUNDLE_TEXT_MAX_ID = 3999;

struct qmdpi_attr {
    std::string name;
};

struct qmdpi_signature {
    int id;
    std::string name;  // in configuration
    std::string longname;
    std::string family;  // as the bundle reports it
    std::vector<qmdpi_attr> attrs;
};

struct t_bundle_family {
    std::string config_name;
    std::string name;
};

struct t_bundle_content {
    std::string version;
    std::vector<t_bundle_family> families;
    std::vector<qmdpi_signature> signatures;  // ids and names are unique
};

enum e_bundle_text_result {
    BUNDLE_TEXT_OK,
    BUNDLE_TEXT_TOO_LARGE,    // the text is longer than BUNDLE_TEXT_MAX_SIZE
    BUNDLE_TEXT_BAD_VERSION,  // it doesn't begin with a bundle line of the known format
    BUNDLE_TEXT_BAD_LINE,     // a line can't be accepted
};

// Where and why reading stopped.
struct t_bundle_text_error {
    uint32_t line;       // from 1; 0 when the reason concerns the whole text
    const char *reason;  // a constant
};

// Reads a whole bundle. On any result but BUNDLE_TEXT_OK *p_content is untouched and *p_error is filled.
// Throws std::bad_alloc without memory.
[[nodiscard]] e_bundle_text_result bundle_text_read(std::string_view text, t_bundle_content *p_content,
                                                    t_bundle_text_error *p_error);
