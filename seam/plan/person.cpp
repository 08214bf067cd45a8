// A plan as a person reads it.

#include "plan/print.h"
#include "plan/switch_words.h"
#include "text.h"

#include <optional>
#include <utility>

namespace seam::plan {

namespace {

constexpr size_t title_width = 9;

// What a terminal would take for a command stands as its number.
std::string visible(const std::string &text)
{
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        out += byte < 0x20 || byte == 0x7f ? hex(byte, 2) : std::string{c};
    }
    return out;
}

class Person {
public:
    Person(const Story &story, const Options &options, const Inputs &inputs, bool colours)
        : story_{story}, options_{options}, inputs_{inputs}, colours_{colours}
    {}

    std::string whole()
    {
        for (const Phase &phase : story_.phases) {
            head(phase);
            steps(phase);
            isolation(phase);
            outcome(phase);
            out_ += "\n";
        }
        ending();
        out_ += painted(colours_, Style::head, "the end") + "\n" + picture_of_world(inputs_, colours_) + "\n";
        if (options_.from_now) {
            against_now();
        }
        meetings(true);
        return out_;
    }

    std::string wrong()
    {
        for (const Phase &phase : story_.phases) {
            if (!phase.refused) {
                continue;
            }
            head(phase);
            for (const Message &message : phase.messages) {
                if (message.level == "error" || message.level == "warning") {
                    said(message);
                }
            }
            outcome(phase);
        }
        ending();
        meetings(false);
        return out_;
    }

private:
    void line(const std::string &title, const std::string &text, std::optional<Style> style = {})
    {
        std::string padded = title;
        padded.resize(std::max(title_width, title.size()), ' ');
        const std::string shown = visible(text);
        out_ += "  " + padded + " " + (style ? painted(colours_, *style, shown) : shown) + "\n";
    }
    void head(const Phase &phase) { out_ += painted(colours_, Style::head, visible(phase.said)) + "\n"; }

    void said(const Message &message)
    {
        const bool bad = message.level == "error" || message.level == "warning";
        const bool minor = message.level == "info" || message.level == "debug";
        line("says", message.level + ": " + message.text,
             bad     ? Style::down
             : minor ? std::optional{Style::dim}
                     : std::nullopt);
    }

    void steps(const Phase &phase)
    {
        size_t next_message = 0;
        for (size_t i = 0; i <= phase.operations.size(); ++i) {
            for (; next_message < phase.messages.size() && phase.messages[next_message].operations <= i;
                 ++next_message) {
                said(phase.messages[next_message]);
            }
            if (i < phase.operations.size()) {
                operation(phase.operations[i]);
            }
        }
    }

    void operation(const Operation &operation)
    {
        // Of the switch's registers many are written as they are.
        const bool changes_alone = operation.area == Area::hardware || options_.from_now;
        if (changes_alone && operation.changes.empty() && operation.result == 0) {
            return;
        }
        if (operation.result == 0) {
            line(name_of(operation.area), operation.words);
        } else {
            line(name_of(operation.area), operation.words + ": refused, " + std::to_string(operation.result),
                 Style::down);
        }
    }

    void isolation(const Phase &phase)
    {
        for (size_t i = 1; i < phase.reach.size(); ++i) {
            line(i == 1 ? "isolation" : "", "from write " + std::to_string(phase.reach[i].write) + ": " +
                                                words_of(phase.reach[i].reach));
        }
    }

    void outcome(const Phase &phase)
    {
        if (phase.status) {
            line("", (phase.kind == "call" ? "status " : "returned ") + std::to_string(*phase.status),
                 phase.refused ? Style::down : Style::up);
        }
        // Of a start that is the whole end.
        if (phase.refused && phase.kind != "start") {
            what_stays(phase);
        }
    }

    void what_stays(const Phase &phase)
    {
        std::string title = "stays";
        for (const std::string &fact : phase.changes) {
            if (!fact.starts_with("switch ") && !fact.starts_with("-switch ")) {
                line(std::exchange(title, ""), without_password(fact));
            }
        }
        if (!phase.switch_changes.empty()) {
            line(std::exchange(title, ""), phase.switch_changes);
        }
        if (!title.empty()) {
            line(title, "nothing is changed");
        }
    }

    void ending()
    {
        if (story_.ending.empty()) {
            return;
        }
        out_ += painted(colours_, Style::down, story_.ending) + "\n";
        for (size_t i = story_.phases.size() - 1; i < options_.steps.size(); ++i) {
            out_ += "not reached: " + visible(options_.steps[i].said) + "\n";
        }
        out_ += "\n";
    }

    std::string port(unsigned number) const
    {
        const std::string serves = inputs_.serves(number);
        return std::to_string(number) + (serves.empty() ? "" : " (" + serves + ")");
    }

    // Registers are in the VLAN table and the PVIDs.
    void against_now()
    {
        out_ += painted(colours_, Style::head, "against now") + "\n";
        const std::string hardware = switch_change(inputs_.world.hardware, world.hardware);
        for (const std::string &fact : story_.changes) {
            if (!fact.starts_with("switch ") && !fact.starts_with("-switch ")) {
                line("", without_password(fact));
            }
        }
        if (!hardware.empty()) {
            line("", hardware);
        }
        if (story_.changes.empty()) {
            line("", "nothing to do");
        }
        out_ += "\n";
    }

    // A line for two ports in a phase, however often they meet there.
    void meetings(bool all)
    {
        bool any = false;
        for (const Phase &phase : story_.phases) {
            for (size_t i = 0; i < phase.meetings.size();) {
                const Meeting &first = phase.meetings[i];
                const Meeting *last = &first;
                unsigned writes = 0;
                for (; i < phase.meetings.size() && phase.meetings[i].a == first.a &&
                       phase.meetings[i].b == first.b;
                     ++i) {
                    last = &phase.meetings[i];
                    writes += last->writes;
                }
                any = any || !last->by_layout;
                if (all || !last->by_layout) {
                    meeting(phase, first, *last, writes);
                }
            }
        }
        if (all && !any) {
            out_ += "isolation: " + std::to_string(story_.writes) + " writes to the switch; no ports meet" +
                    " that should not\n";
        }
    }

    void meeting(const Phase &phase, const Meeting &first, const Meeting &last, unsigned writes)
    {
        const std::string who = "ports " + port(first.a) + " and " + port(first.b) + " meet";
        out_ += painted(colours_, last.by_layout ? Style::dim : Style::down, who) + ", " +
                (first.lan_and_wan ? "one a WAN's" : "apart before and after") + ": " + phase.said + ", " +
                std::to_string(writes) + " writes from write " + std::to_string(first.write) + " on" +
                (last.lasts       ? ", and it stays so"
                 : last.by_layout ? ", until its section takes a port out of the VLAN of LAN 1"
                                  : "") +
                "\n";
    }

    const Story &story_;
    const Options &options_;
    const Inputs &inputs_;
    bool colours_;
    std::string out_;
};

} // namespace

std::string for_person(const Story &story, const Options &options, const Inputs &inputs, bool colours)
{
    return Person{story, options, inputs, colours}.whole();
}

std::string only_wrong(const Story &story, const Options &options, const Inputs &inputs, bool colours)
{
    return Person{story, options, inputs, colours}.wrong();
}

} // namespace seam::plan
