// One call of the daemon into what lies below it: its name and arguments, what it does to the world, the
// result it is given, its line in the trace.
//
// A function of the platform library is described by one statement:
//
//     return act(__func__, &System::bridge_join, br, member);
//     return act(__func__, &System::mac_get, name, MacOut{mac});
//
// What an argument is, its type says: texts and numbers as they are, Hex and MacIn written in their own way,
// Word as it stands; what ends in Out is no argument of the line but stands behind the result, and can be
// demanded.
#pragma once

#include "arguments.h"
#include "process.h"
#include "text.h"
#include "trace.h"
#include "world.h"

#include <concepts>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace seam {

// A function's name, and where it was called.
struct Name {
    Name(const char *text, const void *caller = __builtin_return_address(0)) : name{text}, site{caller} {}
    std::string_view name;
    const void *site;
};

struct Word {
    std::string text;
};

// How an argument is written, how a demanded one is taken, and how functions of the world take it.
inline std::string written(const char *text)
{
    return quote(text);
}
inline std::string written(std::integral auto number)
{
    return std::to_string(number);
}
inline std::string written(const Hex &number)
{
    return hex(number.value, number.digits);
}
inline std::string written(const MacIn &mac)
{
    return mac_text(mac.bytes);
}
inline std::string written(const Word &word)
{
    return word.text;
}
inline std::string written(const Secret &secret)
{
    return quote(secret.text);
}
inline std::string written(const HexOut &out)
{
    return hex(*out.at, out.digits);
}
inline std::string written(const NumberOut &out)
{
    return std::to_string(*out.at);
}
inline std::string written(const MacOut &out)
{
    return mac_text(out.at);
}
inline std::string written(const TextOut &out)
{
    return quote(out.at);
}

inline void take(const HexOut &out, const std::string &text)
{
    *out.at = static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 16));
}
inline void take(const NumberOut &out, const std::string &text)
{
    *out.at = std::atoi(text.c_str());
}
inline void take(const MacOut &out, const std::string &text)
{
    mac_of(text, out.at);
}
inline void take(const TextOut &out, const std::string &text)
{
    std::snprintf(out.at, static_cast<size_t>(out.room_bytes), "%s", unquoted(text).c_str());
}

// In bytes.
inline size_t size_of(const HexOut & /*out*/)
{
    return sizeof(uint32_t);
}
inline size_t size_of(const NumberOut & /*out*/)
{
    return sizeof(int);
}
inline size_t size_of(const MacOut & /*out*/)
{
    return 6;
}
inline size_t size_of(const TextOut &out)
{
    return static_cast<size_t>(out.room_bytes);
}

template <class Argument>
concept Output = requires(const Argument &argument, const std::string &text)
{
    take(argument, text);
};

inline std::string given(const char *text)
{
    return plain(text);
}
auto given(std::integral auto number)
{
    return number;
}
inline uint32_t given(const Hex &number)
{
    return number.value;
}
inline const uint8_t *given(const MacIn &mac)
{
    return mac.bytes;
}
inline std::string given(const Secret &secret)
{
    return plain(secret.text);
}
auto given(const Output auto &output)
{
    return output.at;
}

// The result of a call, and what it fills in.
struct Answer {
    long value;
    std::string out;
};
// Asked for the result of each call that has one, before all demands.
extern std::optional<Answer> (*answerer)(const std::string &call);
// Told what the world would have answered to a call, and what was demanded of it instead.
extern void (*comparer)(const std::string &call, const Answer &own, const Answer &demanded);

class Call {
public:
    // What the call is to the world: an action may fail and is where a kill can strike; a question has no
    // failure, only another answer; a saying is neither counted nor made to fail.
    enum class Kind { action, question, saying };

    template <class... Arguments>
    Call(const Name &name, Kind kind, const Arguments &...arguments) : name_{name}, kind_{kind}
    {
        (add(arguments), ...);
    }

    // Put before the line, and no part of the text that results are matched with.
    Call &prefix(std::string_view value);

    // The result that the script or an injected fault demands; counts the call. Once per call.
    std::optional<long> demanded();
    // The demanded out-value, empty when none is.
    const std::string &demanded_out() const { return out_; }
    // Writes the line.
    int done(long result, std::string_view out = {});
    void say();

    // Does the call: the result is the effect's unless another is demanded. An effect is skipped when the
    // demanded result is a failure.
    template <class Effect, class... Arguments> int act(const Effect &effect, const Arguments &...arguments)
    {
        const std::optional<long> wanted = demanded();
        if (wanted && comparer != nullptr) {
            comparer(whole(), own_answer(effect, arguments...), {*wanted, out_});
        }
        if (wanted && *wanted != 0) {
            return done(*wanted);
        }
        const int result = apply(effect, arguments...);
        if (result != 0 && !wanted) {
            return done(result);
        }
        std::string out;
        (take_out(arguments, out), ...);
        return done(0, out);
    }

    template <class Effect, class... Arguments> int ask(const Effect &effect, const Arguments &...arguments)
    {
        const std::optional<long> wanted = demanded();
        if (wanted && comparer != nullptr) {
            comparer(whole(), {apply(effect, arguments...), {}}, {*wanted, {}});
        }
        const long result = wanted ? *wanted : apply(effect, arguments...);
        return done(flip_ ? static_cast<long>(result == 0) : result);
    }

private:
    // What the world would answer; it stays as it is, and so does what the call would fill in.
    template <class Effect, class... Arguments>
    static Answer own_answer(const Effect &effect, const Arguments &...arguments)
    {
        const World world_before = world;
        const Process process_before = process;
        std::string filled;
        (keep_out(arguments, filled), ...);
        Answer own{apply(effect, arguments...), {}};
        if (own.value == 0) {
            (write_out(arguments, own.out), ...);
        }
        (give_back_out(arguments, filled), ...);
        world = world_before;
        process = process_before;
        return own;
    }
    template <class Argument> static void keep_out(const Argument &argument, std::string &filled)
    {
        if constexpr (Output<Argument>) {
            filled.assign(reinterpret_cast<const char *>(argument.at), size_of(argument));
        }
    }
    template <class Argument> static void give_back_out(const Argument &argument, const std::string &filled)
    {
        if constexpr (Output<Argument>) {
            std::memcpy(argument.at, filled.data(), filled.size());
        }
    }
    template <class Argument> static void write_out(const Argument &argument, std::string &out)
    {
        if constexpr (Output<Argument>) {
            out = written(argument);
        }
    }
    template <class Argument> void add(const Argument &argument)
    {
        if constexpr (!Output<Argument>) {
            arguments_ += (arguments_.empty() ? "" : ", ") + written(argument);
        }
    }
    template <class Argument> void take_out(const Argument &argument, std::string &out)
    {
        if constexpr (Output<Argument>) {
            if (!out_.empty()) {
                take(argument, out_);
            }
            out = written(argument);
        }
    }
    // An effect is a function of a part of the world with the arguments, or one that knows them.
    template <class Effect, class... Arguments>
    static int apply(const Effect &effect, const Arguments &...arguments)
    {
        if constexpr (std::is_invocable_v<Effect>) {
            return result_of(effect);
        } else if constexpr (std::is_invocable_v<Effect, System &, decltype(given(arguments))...>) {
            return result_of([&] { return std::invoke(effect, world.system, given(arguments)...); });
        } else {
            return result_of([&] { return std::invoke(effect, world.hardware, given(arguments)...); });
        }
    }
    // An effect without a result succeeds.
    static int result_of(const auto &effect)
    {
        if constexpr (std::is_void_v<decltype(effect())>) {
            effect();
            return 0;
        } else {
            return effect();
        }
    }
    std::string whole() const;

    Name name_;
    Kind kind_;
    std::string arguments_;
    std::string prefix_;
    std::string out_;
    bool flip_ = false;
};

// Nothing is done.
constexpr auto nothing = [] {};

template <class Effect, class... Arguments>
int act(const Name &name, const Effect &effect, const Arguments &...arguments)
{
    return Call(name, Call::Kind::action, arguments...).act(effect, arguments...);
}

template <class Effect, class... Arguments>
int ask(const Name &name, const Effect &effect, const Arguments &...arguments)
{
    return Call(name, Call::Kind::question, arguments...).ask(effect, arguments...);
}

template <class... Arguments> void say(const Name &name, const Arguments &...arguments)
{
    Call(name, Call::Kind::saying, arguments...).say();
}

// A line for each fact of the world that has changed since the last time: changed "up lan1".
void trace_changes();

// The same for a function that other ways stand behind, too: they have no use for the effect.
template <auto Function, auto Effect, class... Arguments>
int act(const Name &name, const Arguments &...arguments)
{
    return act(name, Effect, arguments...);
}
template <auto Function, class Effect, class... Arguments>
int act(const Name &name, const Effect &effect, const Arguments &...arguments)
{
    return act(name, effect, arguments...);
}
template <auto Function, auto Effect, class... Arguments>
int ask(const Name &name, const Arguments &...arguments)
{
    return ask(name, Effect, arguments...);
}

// "result NTH PATTERN VALUE OUT": NTH 0 for every match; a pattern without "(" is a function's name. The
// newest rule that matches wins.
void demand(unsigned nth, const std::string &pattern, long value, const std::string &out = {});
void demand_nothing();
// Kills the process before the n-th action takes effect; makes the n-th fallible call fail. 0: never.
void kill_at(unsigned n);
void fail_at(unsigned n);
// How many actions, and how many fallible calls, there have been.
unsigned actions_counted();
unsigned fallible_counted();

} // namespace seam
