// The terminals that our output goes to, and what may be written to them.
#pragma once

#include <cstddef>
#include <cstdint>
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
/// Printable text with blanks after it, or before it, up to `columns`.
std::string padded(std::string_view text, int columns);
std::string paddedLeft(std::string_view text, int columns);
/// "1 session", "2 sessions".
std::string counted(std::int64_t count, std::string_view one);
/// The texts in one, with a separator between them.
std::string joined(const std::vector<std::string>& texts, std::string_view separator = ", ");

/// Whether a descriptor is a terminal that can be drawn on: one whose TERM is set and not "dumb".
bool isScreen(int descriptor);

/// What the destination of a text can show.
struct TerminalStyle {
  int columns = 80;
  int rows = 24;
  bool hasColor = false;  ///< ANSI colours
};
/// The style of a descriptor: the size above when it is no terminal or does not tell, and colours
/// where it can be drawn on and the user does not forbid them by NO_COLOR.
TerminalStyle terminalStyle(int descriptor);

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
