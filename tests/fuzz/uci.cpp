// Configuration files and saved changes. Loading gives a package or a parse error; a package that is written
// out and read again is the same package.
//
// An input is a file; a line "%%" begins the changes that are saved but not yet committed.
#include "input.h"

#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>
#include <uci.h>
#include <unistd.h>

namespace {

using fuzz::promise;

struct Folders {
    Folders()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "fuzz-uci-XXXXXX").string();
        promise(mkdtemp(pattern.data()) != nullptr, "there is a temporary folder");
        top = pattern;
        for (const char *name : {"config", "saved", "again", "empty"}) {
            // Saved changes are read from where nobody else can write.
            promise(mkdir((top / name).c_str(), 0700) == 0, "there are folders in it");
        }
    }
    ~Folders() { std::filesystem::remove_all(top); }
    Folders(const Folders &) = delete;
    Folders &operator=(const Folders &) = delete;

    std::filesystem::path top;
};

Folders &folders()
{
    static Folders made;
    return made;
}

void write(const char *folder, std::string_view content)
{
    const std::string path = folders().top / folder / "net";
    if (FILE *file = fopen(path.c_str(), "w")) {
        fwrite(content.data(), 1, content.size(), file);
        fclose(file);
    }
}

class Loaded {
public:
    Loaded(const char *config, const char *saved) : ctx_{uci_alloc_context()}
    {
        promise(ctx_ != nullptr, "there is memory");
        uci_set_confdir(ctx_, (folders().top / config).c_str());
        uci_set_savedir(ctx_, (folders().top / saved).c_str());
        code_ = uci_load(ctx_, "net", &package_);
        promise(code_ == UCI_OK || code_ == UCI_ERR_PARSE, "a file is a package or has a mistake");
        promise((code_ == UCI_OK) == (package_ != nullptr), "a package comes with success alone");
    }
    ~Loaded() { uci_free_context(ctx_); }
    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;

    uci_context *context() const { return ctx_; }
    uci_package *package() const { return package_; }
    std::string error() const
    {
        char *text = nullptr;
        uci_get_errorstr(ctx_, &text, nullptr);
        const std::string out = text ? text : "";
        free(text);
        return out;
    }
    std::string exported() const
    {
        char *text = nullptr;
        size_t size = 0;
        FILE *stream = open_memstream(&text, &size);
        promise(stream != nullptr, "there is memory");
        const int code = uci_export(ctx_, stream, package_, true);
        fclose(stream);
        std::string out(text, size);
        free(text);
        promise(code == UCI_OK, "a package can be written out");
        return out;
    }

private:
    uci_context *ctx_;
    uci_package *package_ = nullptr;
    int code_ = 0;
};

void walk(const Loaded &loaded)
{
    std::set<std::string> names;
    uci_element *of_package;
    uci_foreach_element(&loaded.package()->sections, of_package)
    {
        const uci_section *section = uci_to_section(of_package);
        promise(section->type != nullptr && section->type[0] != '\0', "a section has a type");
        promise(section->e.name != nullptr && section->e.name[0] != '\0', "a section has a name");
        promise(section->package == loaded.package(), "a section knows its package");
        promise(section->anonymous || names.insert(section->e.name).second, "a name is one section's");
        std::set<std::string> options;
        uci_element *of_section;
        uci_foreach_element(&section->options, of_section)
        {
            const uci_option *option = uci_to_option(of_section);
            promise(option->e.name != nullptr, "an option has a name");
            promise(options.insert(option->e.name).second, "a name is one option's");
            if (option->type == UCI_TYPE_STRING) {
                promise(option->v.string != nullptr, "a string option has a value");
            } else {
                uci_element *item;
                uci_foreach_element(&option->v.list, item)
                {
                    promise(item->name != nullptr, "a list item has a value");
                }
            }
        }
    }
}

// Types are written without quotes, so that those with signs of the grammar in them do not come back.
bool can_come_back(const Loaded &loaded)
{
    uci_element *element;
    uci_foreach_element(&loaded.package()->sections, element)
    {
        if (strpbrk(uci_to_section(element)->type, "'\"\\;#") != nullptr) {
            return false;
        }
    }
    return true;
}

// Takes expressions apart as the command-line tool would.
void look_up(const Loaded &loaded, std::string_view text)
{
    fuzz::Input lines(text);
    for (int i = 0; i < 8 && !lines.empty(); i++) {
        std::string expression{lines.until('\n')};
        expression = "net." + expression.substr(0, expression.find('\0'));
        uci_ptr pointer{};
        uci_lookup_ptr(loaded.context(), &pointer, expression.data(), true);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text{reinterpret_cast<const char *>(data), size};
    const size_t border = text.find("\n%%\n");
    write("config", text.substr(0, border));
    write("saved", border == text.npos ? "" : text.substr(border + 4));

    const Loaded first("config", "saved");
    if (first.package() == nullptr) {
        promise(!first.error().empty(), "a mistake has a text");
        return 0;
    }
    walk(first);
    look_up(first, text);
    if (can_come_back(first)) {
        const std::string once = first.exported();
        write("again", once);
        const Loaded second("again", "empty");
        promise(second.package() != nullptr, "what is written out can be read");
        promise(second.exported() == once, "a package is the same after writing and reading");
    }
    return 0;
}
