// A context on folders of its own, and the content of a package as one comparable text.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <uci.h>

class UciTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string path(const std::string &name) const { return folder_ + "/" + name; }
    void make_folder(const std::string &name);
    void write(const std::string &name, std::string_view text, mode_t mode = 0644);
    // Loads the package "net" with this text. The code; the package stays null on failure.
    int load(std::string_view text);
    // One line for each section and option: "name=type", "name.option=value", "name.option=[a|b]"; anonymous
    // sections with a star before their generated name.
    static std::string content(const uci_package *package);
    std::string content() const { return content(package); }
    // The content of "net" with this text, or the error's text.
    std::string parsed(std::string_view text);
    std::string error_text(const char *prefix = nullptr);

    uci_context *ctx = nullptr;
    uci_package *package = nullptr;

private:
    std::string folder_;
};
