// The terminals that our output goes to, and what may be written to them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace wakelatch::host {

/// `text` from outside as one harmless line: control characters, which could move the cursor or
/// speak for us on a line of their own, and bytes that are no text become U+FFFD.
std::string printable(std::string_view text);

/// The longest beginning of printable text that takes at most `columns`, whole characters only.
/// East Asian wide characters and most pictures take two columns; marks that combine are counted as
/// one, though they take none.
std::string_view firstColumns(std::string_view text, int columns);
/// How many columns printable text takes, by the same count.
int columnsOf(std::string_view text);

/// Whether a descriptor is a terminal that can be drawn on: one whose TERM is set and not "dumb".
bool isScreen(int descriptor);

/// Whether the user lets programs use colours: NO_COLOR is unset or empty.
bool wantsColor();

struct TerminalSize {
  int columns = 80;
  int rows = 24;
};
/// Each is as above when the descriptor is no terminal or does not tell.
TerminalSize terminalSize(int descriptor);

/// The bytes that draw `lines` in the place of those drawn before them. The cursor stands below the
/// last line then, so a screen holds one line less than it has rows. Nothing is cut: while they are
/// drawn, lines that are too long do not wrap.
/// @param linesBefore  how many lines the last drawing had; 0 for the first, which begins at the
///                     cursor's line
/// @param wasResized   the terminal has changed its size since, and what it did to the lines is not
///                     known: the whole screen is drawn anew
std::string drawing(std::size_t linesBefore, const std::vector<std::string>& lines,
                    bool wasResized);

}  // namespace wakelatch::host
