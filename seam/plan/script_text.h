// A script for the preloaded world, line by line; script.cpp reads it.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace seam::plan {

class ScriptText {
public:
    void line(std::initializer_list<std::string_view> fields);
    const std::string &text() const { return text_; }

private:
    std::string text_;
};

} // namespace seam::plan
