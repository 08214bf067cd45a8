// Random identifiers. Unpredictable, so that a stale id of an earlier life does not meet a new object.
#include "broker.h"
#include "wire.h"

#include <cerrno>
#include <sys/random.h>

namespace broker {

void init_id_tree(avl_tree *tree)
{
    avl_init(tree, wire::compare_ids, false, nullptr);
}

bool file_under_new_id(avl_tree *tree, avl_node *node, uint32_t *id)
{
    node->key = id;
    for (;;) {
        ssize_t got;
        do {
            got = getrandom(id, sizeof(*id), 0);
        } while (got < 0 && errno == EINTR);
        if (got != sizeof(*id)) {
            return false;
        }
        // The low ones belong to the broker's own objects.
        if (*id >= UBUS_SYSTEM_OBJECT_MAX && avl_insert(tree, node) == 0) {
            return true;
        }
    }
}

char *copy_text(const char *text)
{
    return text != nullptr ? strdup(text) : nullptr;
}

} // namespace broker
