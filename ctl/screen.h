// Where a command draws: standard output, as a terminal of some width or as plain text.
#pragma once

#include <cstddef>

namespace ctl {

enum class style { plain, good, bad, head, dim };

class screen {
public:
    // 0 columns: as standard output is; other numbers: as a terminal of that width.
    explicit screen(unsigned columns);

    bool is_terminal() const { return terminal_; }
    unsigned columns() const { return columns_; }

    // Escape sequences, empty where there is no terminal.
    const char *paint(style how) const;
    const char *end() const { return paint(style::plain); }

    // A text whose first line begins at a column and whose others are indented as far; words stay whole.
    void paragraph(unsigned column, const char *text) const;

    // Ready for the next picture of a series.
    void clear() const;

private:
    bool terminal_;
    unsigned columns_;
};

} // namespace ctl
