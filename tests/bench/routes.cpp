// Static routes over the bus, while their table grows: each operation beside an empty call and the same
// changes sent to the kernel directly, in a table of its own that grows alike.

#include "bus.h"
#include "kernel.h"
#include "pairs.h"
#include "questions.h"

namespace bench {

namespace {

constexpr uint32_t direct_table = 20'000; // no rule looks it up
constexpr uint32_t gateway = 0xcb007101;  // 203.0.113.1
constexpr uint32_t network = 0x0a000000;  // 10.0.0.0/8
constexpr uint32_t metric = 10;

std::string name(int number)
{
    return "r" + std::to_string(number);
}

std::string destination(int number)
{
    return "10." + std::to_string(number >> 8) + "." + std::to_string(number & 0xff) + ".0";
}

kernel::route direct(int number)
{
    return {direct_table, network | static_cast<uint32_t>(number) << 8, 24, gateway, metric};
}

std::string fields(int number)
{
    return R"({"name":")" + name(number) + R"(","line":"auto","dstaddr":")" + destination(number) +
           R"(","netmask":"255.255.255.0","gateway":"203.0.113.1","metric":"10"})";
}

class table {
public:
    table() : empty_("bench.empty"), nothing_("{}")
    {
        object_ = bus_.find("ivarode.route");
        limit_ = bus_.find("bench.empty");
    }

    void grow(int size)
    {
        for (; count_ < size; count_++) {
            measure(add_, "add", fields(count_), [&] { kernel_.add_route(direct(count_)); });
        }
    }

    // Each operation on `samples` routes, spread evenly over the table, which is as before afterwards but for
    // its order.
    void sample(int samples)
    {
        pairs find;
        pairs edit;
        pairs remove;
        pairs again;
        for (int i = 0; i < samples; i++) {
            const int number = static_cast<int>((static_cast<long>(i) * 2 + 1) * count_ / (samples * 2L));
            measure(find, "enable", R"({"name":[")" + name(number) + R"("],"enable":1})",
                    [&] { kernel_.add_route(direct(number)); });
            measure(edit, "edit", fields(number), [&] {
                kernel_.delete_route(direct(number));
                kernel_.add_route(direct(number));
            });
            measure(remove, "del", R"({"name":[")" + name(number) + R"("]})",
                    [&] { kernel_.delete_route(direct(number)); });
            measure(again, "add", fields(number), [&] { kernel_.add_route(direct(number)); });
        }
        const std::string size = std::to_string(count_);
        again.print("route.add." + size);
        find.print("route.find." + size);
        edit.print("route.edit." + size);
        remove.print("route.del." + size);
    }

private:
    template <typename Direct>
    void measure(pairs &into, const char *method, const std::string &json, Direct direct_change)
    {
        message arguments(json);
        const double empty = microseconds([&] { bus_.must(limit_, "call", nothing_.attribute()); });
        const double change = microseconds(direct_change);
        into.add(microseconds([&] { bus_.must(object_, method, arguments.attribute()); }), empty + change);
    }

    limit_object empty_;
    client bus_;
    kernel kernel_;
    message nothing_;
    uint32_t object_ = 0;
    uint32_t limit_ = 0;
    int count_ = 0;
    pairs add_;
};

} // namespace

void ask_routes(const words &given)
{
    const int samples = std::stoi(given.at(0));
    table routes;
    for (size_t i = 1; i < given.size(); i++) {
        routes.grow(std::stoi(given[i]));
        routes.sample(samples);
    }
}

void ask_direct(const words &given)
{
    kernel kernel;
    const int count = std::stoi(given.at(0));
    std::printf("direct %.2f\n", microseconds([&] {
                    for (int i = 0; i < count; i++) {
                        kernel.add_route(direct(i));
                    }
                }));
}

} // namespace bench
