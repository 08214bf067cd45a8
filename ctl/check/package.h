// A package of the configuration, read as the daemon reads it: from its file alone, without saved changes.
#pragma once

#include "check/findings.h"

#include <cstring>
#include <uci.h>

namespace ctl {

struct section {
    const char *file;
    const char *name;
    uci_section *parsed;

    // Null where the option is not there or is a list.
    const char *text(const char *option) const;
};

enum class package_state { good, missing, malformed };

class package {
public:
    package() = default;
    package(const package &) = delete;
    package &operator=(const package &) = delete;
    ~package();

    // path lives longer than the package. What is wrong is in the findings, with that effect.
    package_state load(const char *path, effect of_failure, const char *does, findings &found);

    // Calls visit(const section &) for each section of a type; others are findings.
    template <typename Visit> void each(const char *type, findings &found, Visit visit) const
    {
        uci_element *element = nullptr;
        uci_foreach_element(&loaded_->sections, element)
        {
            uci_section *parsed = uci_to_section(element);
            if (strcmp(parsed->type, type) == 0) {
                visit(section{path_, parsed->e.name, parsed});
            } else {
                found.add({path_, parsed->e.name}, effect::ignored, "the section is ignored",
                          "it is of type %s, not %s", parsed->type, type);
            }
        }
    }

private:
    uci_context *context_ = nullptr;
    uci_package *loaded_ = nullptr;
    const char *path_ = nullptr;
};

} // namespace ctl
