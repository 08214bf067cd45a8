// The bus and configuration helpers of the platform library.

#include "platform/bus.h"

#include "call.h"
#include "message.h"
#include "platform/config.h"
#include "process.h"

#include <uci.h>

using namespace seam;

namespace {

// The section that a walk is at.
struct Walk {
    uci_context *ctx;
    uci_section *record;
    const Section *section;
};
Walk walk{};

int walk_section(Section &section, ucilib_section_cb cb, void *arg)
{
    uci_context context{};
    uci_section record{};
    record.e.type = UCI_TYPE_SECTION;
    record.e.name = section.name.data();
    record.type = section.type.data();
    walk = {&context, &record, &section};
    const int result = cb(&context, &record, arg);
    walk = {};
    return result;
}

} // namespace

int ubuslib_invoke_init(int flag, struct ubus_object **objects, int count)
{
    std::string names;
    for (int i = 0; i < count; ++i) {
        names += (i == 0 ? "" : " ") + plain(objects[i]->name);
    }
    return act(
        __func__, [&] { process.objects.assign(objects, objects + count); }, flag, Word{"[" + names + "]"},
        count);
}

int ubuslib_invoke_exit(int flag, struct ubus_object ** /*objects*/, int count)
{
    return act(__func__, nothing, flag, count);
}

int ubuslib_invoke_call(const char *object, const char *method, struct blob_buf *msg,
                        ubus_data_handler_t /*reply*/, void * /*priv*/)
{
    return act(__func__, nothing, object, method, Word{message_text(msg->head)});
}

int ubuslib_bmsg_strlist_get(struct blob_attr *array, char **out, int capacity)
{
    const auto list = [&] { return list_texts(array, out, capacity); };
    return act(__func__, list, Word{array == nullptr ? "null" : "list"}, capacity);
}

int ucilib_foreach_section(const char *package, const char *type, ucilib_section_cb cb, void *arg)
{
    const Name name{__func__};
    Call call(name, Call::Kind::action, package, type);
    if (const std::optional<long> wanted = call.demanded(); wanted && *wanted != 0) {
        return call.done(*wanted);
    }
    if (!world.packages.contains(plain(package))) {
        return call.done(-1);
    }
    trace_line(std::string{name.name} + "(" + quote(package) + ", " + quote(type) + ") {", name.site);
    int result = 0;
    for (Section &section : world.sections) {
        if (section.package == package && section.type == plain(type)) {
            result = walk_section(section, cb, arg);
        }
        if (result != 0) {
            break;
        }
    }
    trace_line("} = " + std::to_string(result));
    return result;
}

const char *ucilib_lookup_option_string(struct uci_context *ctx, struct uci_section *s, const char *option,
                                        const char *def)
{
    if (walk.ctx != ctx || walk.record != s) {
        return "not the section of this walk";
    }
    const char *value = def;
    for (const auto &[name, text] : walk.section->options) {
        if (name == plain(option)) {
            value = text.c_str();
        }
    }
    if (shown.options) {
        say(__func__, s->e.name, option, value);
    }
    return value;
}
