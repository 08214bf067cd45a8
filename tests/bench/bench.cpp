// Measures on the board what tests/bench/run asks for: bench QUESTION WORDS..., see questions.h.

#include "pairs.h"
#include "questions.h"

#include <cstring>

int main(int argc, char **argv)
{
    static const struct {
        const char *name;
        void (*ask)(const bench::words &);
    } questions[] = {{"relay", bench::ask_relay},
                     {"call", bench::ask_call},
                     {"routes", bench::ask_routes},
                     {"direct", bench::ask_direct},
                     {"interfaces", bench::ask_interfaces},
                     {"frames", bench::ask_frames},
                     {"time", bench::ask_time}};
    for (const auto &question : questions) {
        if (argc > 1 && !std::strcmp(argv[1], question.name)) {
            question.ask(bench::words(argv + 2, argv + argc));
            return 0;
        }
    }
    bench::give_up("which question?");
}
