// What the program's HTML pages have in common: their style, and functions that make their parts.
// Pure functions, but for the time zone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Clock.h"

namespace wakelatch::host {

/// One self-contained HTML page in the common style, light or dark as the reader's system prefers.
/// It loads nothing and runs no script; its content policy forbids both.
/// @param title     of the window: text
/// @param ownStyle  rules of this page alone, after those of all pages
/// @param header    HTML under the brand: a heading and a paragraph about it
/// @param content   HTML of the rest: sections, and lists of figures
/// @param maker     the command that made the page: text
std::string page(std::string_view title, std::string_view ownStyle, const std::string& header,
                 const std::string& content, std::string_view maker, Timestamp now);

/// HTML of a section with a table that can be scrolled sideways where the screen is narrow. One to
/// a page.
/// @param titles  of the columns, as text
/// @param rows    cells as HTML, the first a name; "0" and "0s" are shown in a softer colour
/// @param note    HTML below the table
std::string tableSection(std::string_view heading, const std::vector<std::string_view>& titles,
                         const std::vector<std::vector<std::string>>& rows,
                         const std::string& note = {});

/// A round number of seconds between the labels of a time axis, so that at most `most` steps fit
/// into `length` seconds.
double axisStep(double length, int most);

/// Text as HTML, in an element or in a quoted attribute.
std::string escaped(std::string_view text);

/// HTML of a name from outside; its writing direction stays its own.
std::string name(std::string_view text);

///@{
/// `value`, at least 0, as "12.34" and "12.34%" in any locale.
std::string decimal(double value);
std::string percent(double value);
///@}

/// " name="value""; the value is HTML.
std::string attribute(std::string_view name, const std::string& value);

}  // namespace wakelatch::host
