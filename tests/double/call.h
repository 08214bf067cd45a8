// One call of the daemon into what lies below it: its text, the result it is given, its line in the trace.
#pragma once

#include "trace.h"

#include <functional>
#include <optional>

namespace recorder {

class Call : public doubles::CallText<Call> {
public:
    // What the call is to the world: an action may fail and is where a kill can strike; a question has no
    // failure, only another answer; a saying is neither counted nor made to fail.
    enum class Kind { action, question, saying };

    explicit Call(std::string_view name, Kind kind = Kind::action,
                  const void *site = __builtin_return_address(0));

    Call &text(const char *value);
    // Put before the line, and no part of the text that results are matched with.
    Call &prefix(std::string_view value);

    // Does the call: the result is the effect's unless the script demands another. An effect is skipped when
    // the demanded result is a failure.
    int act(const std::function<int()> &effect);
    // As act, with an out-value shown after the result when it succeeded.
    int act(const std::function<int()> &effect, const std::function<std::string()> &out);
    int ask(const std::function<int()> &answer);
    // The result that the script or an injected fault demands; counts the call. Once per call.
    std::optional<long> demanded();
    // The demanded out-value, empty when none is.
    const std::string &demanded_out() const { return out_; }
    int done(long result, std::string_view out = {});
    void say();

private:
    std::string prefix_;
    std::string out_;
    const void *site_;
    Kind kind_;
    bool flip_ = false;
};

// "result NTH PATTERN VALUE OUT": NTH 0 for every match. The newest rule that matches wins.
void demand(unsigned nth, const std::string &pattern, long value, const std::string &out);
void demand_nothing();
// Kills the process before the n-th action takes effect; makes the n-th fallible call fail. 0: never.
void kill_at(unsigned n);
void fail_at(unsigned n);
// How many actions, and how many fallible calls, there have been.
unsigned actions_counted();
unsigned fallible_counted();

} // namespace recorder
