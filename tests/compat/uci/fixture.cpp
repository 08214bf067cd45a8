#include "fixture.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

void UciTest::SetUp()
{
    folder_ = testing::TempDir() + "/uci-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(folder_.data()));
    for (const char *name : {"config", "override", "saved"}) {
        make_folder(name);
    }
    ctx = uci_alloc_context();
    ASSERT_NE(nullptr, ctx);
    ASSERT_EQ(UCI_OK, uci_set_confdir(ctx, path("config").c_str()));
    ASSERT_EQ(UCI_OK, uci_set_conf2dir(ctx, path("override").c_str()));
    ASSERT_EQ(UCI_OK, uci_set_savedir(ctx, path("saved").c_str()));
}

// Not writable by others, whatever the umask.
void UciTest::make_folder(const std::string &name)
{
    ASSERT_EQ(0, mkdir(path(name).c_str(), 0755));
}

void UciTest::TearDown()
{
    uci_free_context(ctx);
    std::filesystem::remove_all(folder_);
}

void UciTest::write(const std::string &name, std::string_view text, mode_t mode)
{
    int fd = open(path(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    ASSERT_GE(fd, 0) << path(name);
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(fd, text.data(), text.size()));
    close(fd);
}

int UciTest::load(std::string_view text)
{
    write("config/net", text);
    if (package) {
        uci_unload(ctx, package);
        package = nullptr;
    }
    return uci_load(ctx, "net", &package);
}

std::string UciTest::content(const uci_package *package)
{
    std::string text;
    const uci_element *s;
    uci_foreach_element(&package->sections, s)
    {
        const uci_section *section = uci_to_section(s);
        std::string name = (section->anonymous ? "*" : "") + std::string(section->e.name);
        text += name + "=" + section->type + "\n";
        const uci_element *o;
        uci_foreach_element(&section->options, o)
        {
            const uci_option *option = uci_to_option(o);
            EXPECT_EQ(section, option->section);
            text += name + "." + option->e.name + "=";
            if (option->type == UCI_TYPE_STRING) {
                text += option->v.string;
            } else {
                const char *separator = "[";
                const uci_element *item;
                uci_foreach_element(&option->v.list, item)
                {
                    EXPECT_EQ(UCI_TYPE_ITEM, item->type);
                    text += separator + std::string(item->name);
                    separator = "|";
                }
                text += "]";
            }
            text += "\n";
        }
    }
    return text;
}

std::string UciTest::parsed(std::string_view text)
{
    return load(text) == UCI_OK ? content() : error_text();
}

std::string UciTest::error_text(const char *prefix)
{
    char *text = nullptr;
    uci_get_errorstr(ctx, &text, prefix);
    std::string copy = text ? text : "";
    free(text);
    return copy;
}
