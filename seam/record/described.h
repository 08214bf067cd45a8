// The way behind the descriptions of calls/ in this library: the real function is called, and call and result
// are recorded.
#pragma once

#include "arguments.h"
#include "record/real.h"
#include "record/writer.h"
#include "world.h"

namespace seam {

constexpr auto nothing = [] {};

namespace record {

// How an argument is recorded, what of it stands behind the result, and what the real function is given.
inline void put(Entry &entry, const char *text)
{
    entry.text(text);
}
inline void put(Entry &entry, int number)
{
    entry.number(number);
}
inline void put(Entry &entry, uint32_t number)
{
    entry.number(number);
}
inline void put(Entry &entry, const Hex &number)
{
    entry.hex(number.value, number.digits);
}
inline void put(Entry &entry, const MacIn &mac)
{
    entry.mac(mac.bytes);
}
inline void put(Entry &entry, const Secret &secret)
{
    entry.secret(secret.text);
}
template <class Argument> void put(Entry & /*entry*/, const Argument & /*out*/) {}

inline void put_out(Entry &entry, const HexOut &out)
{
    entry.hex(*out.at, out.digits);
}
inline void put_out(Entry &entry, const NumberOut &out)
{
    entry.number(*out.at);
}
inline void put_out(Entry &entry, const MacOut &out)
{
    entry.mac(out.at);
}
inline void put_out(Entry &entry, const TextOut &out)
{
    entry.text(out.at);
}
template <class Argument> void put_out(Entry & /*entry*/, const Argument & /*in*/) {}

template <class Argument> Argument given(const Argument &argument)
{
    return argument;
}
inline uint32_t given(const Hex &number)
{
    return number.value;
}
inline const uint8_t *given(const MacIn &mac)
{
    return mac.bytes;
}
inline const char *given(const Secret &secret)
{
    return secret.text;
}
inline uint32_t *given(const HexOut &out)
{
    return out.at;
}
inline int *given(const NumberOut &out)
{
    return out.at;
}
inline uint8_t *given(const MacOut &out)
{
    return out.at;
}
inline char *given(const TextOut &out)
{
    return out.at;
}

template <auto Function, bool WithOut, class... Arguments>
int through(const Name &name, const Arguments &...arguments)
{
    const auto real = real_function<Function>(name.text);
    if (!is_recorded(name.site)) {
        return real(given(arguments)...);
    }
    const uint64_t begun = now();
    const int result = real(given(arguments)...);
    Entry entry(format::Kind::call, begun);
    entry.name(name.text);
    (put(entry, arguments), ...);
    entry.tag(format::Tag::result);
    entry.number(result);
    if (WithOut && result == 0) {
        (put_out(entry, arguments), ...);
    }
    return result;
}

} // namespace record

using record::Name;

template <auto Function, auto Effect, class... Arguments>
int act(const Name &name, const Arguments &...arguments)
{
    return record::through<Function, true>(name, arguments...);
}
template <auto Function, class Effect, class... Arguments>
int act(const Name &name, const Effect & /*effect*/, const Arguments &...arguments)
{
    return record::through<Function, true>(name, arguments...);
}
template <auto Function, auto Effect, class... Arguments>
int ask(const Name &name, const Arguments &...arguments)
{
    return record::through<Function, false>(name, arguments...);
}

} // namespace seam
