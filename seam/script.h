// What a scenario sets up, and its steps. The script is one line for each word of command, tab-separated
// fields, with \t, \n, \\ and \xNN in them. Lines before "loop" run when the library is loaded, the others
// when the daemon enters its event loop.
//
//   IVARODE_SCRIPT  the script's file. Without it nothing is recorded and every call is the real one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace seam {

class ScriptLine {
public:
    explicit ScriptLine(std::vector<std::string> fields = {}) : fields_{std::move(fields)} {}
    const std::string &word() const { return (*this)[0]; }
    // A field that is not there is empty, or 0.
    const std::string &operator[](size_t index) const;
    uint32_t number(size_t index) const;

private:
    std::vector<std::string> fields_;
};

std::vector<ScriptLine> script_read(const std::string &path);

// Each: false when the word is not one of these. Statements of what there is; words that steer the recording;
// steps inside the event loop, of which "call" takes the lines of its message from the script.
bool state(const ScriptLine &line);
bool steer(const ScriptLine &line);
bool step(const ScriptLine &line, const std::vector<ScriptLine> &script, size_t &next);

} // namespace seam
