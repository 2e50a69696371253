// Data as text for people: what the daemon gives as JSON, laid out.
//
// The layout follows the JSON alone. Names lose their module; a group of values has its names in one column;
// what lies inside is indented by two. The entries of a list become a table where all of them hold only
// simple values and the table is no wider than the page; else each has a heading with its first value, which
// is its key, and what it holds below. Values with blanks or without characters are quoted outside of tables;
// control characters are shown as \x1b everywhere.
#pragma once

#include "cli/client.h"

// Appends an object as lines.
void cli_text_object(const t_cli_json &object, std::string *p_text);

// Appends a table with these columns, at any width: rows are objects, and a member that is missing leaves its
// place empty. Columns of numbers stand to the right.
void cli_text_table(const t_cli_json &rows, const std::vector<std::string> &columns, std::string *p_text);
