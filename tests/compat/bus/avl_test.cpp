// Trees and lists against the standard library's.
#include "support.h"

extern "C" {
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blob.h>
}

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct Item {
    avl_node node;
    std::string key;
    int serial;
};

int depth(const avl_node *node)
{
    if (!node) {
        return 0;
    }
    const int left = depth(node->left);
    const int right = depth(node->right);
    EXPECT_LE(std::abs(left - right), 1) << "out of balance";
    if (node->left) {
        EXPECT_EQ(node->left->parent, node);
    }
    if (node->right) {
        EXPECT_EQ(node->right->parent, node);
    }
    return std::max(left, right) + 1;
}

class Model {
public:
    explicit Model(bool dups) : dups_(dups) { avl_init(&tree_, avl_strcmp, dups, nullptr); }

    void insert(const std::string &key)
    {
        auto item = std::make_unique<Item>();
        item->key = key;
        item->serial = ++serial_;
        item->node.key = item->key.c_str();
        const bool taken = !dups_ && map_.contains(key);
        ASSERT_EQ(avl_insert(&tree_, &item->node), taken ? -1 : 0);
        if (!taken) {
            map_.emplace(key, std::move(item));
        }
    }
    void remove(size_t index)
    {
        auto at = std::next(map_.begin(), static_cast<ptrdiff_t>(index % map_.size()));
        avl_delete(&tree_, &at->second->node);
        map_.erase(at);
    }
    void check(const std::string &probe)
    {
        ASSERT_EQ(tree_.count, map_.size());
        EXPECT_EQ(avl_is_empty(&tree_), map_.empty());
        auto expected = map_.begin();
        Item *item;
        avl_for_each_element(&tree_, item, node)
        {
            ASSERT_NE(expected, map_.end());
            ASSERT_EQ(item, expected->second.get());
            ++expected;
        }
        ASSERT_EQ(expected, map_.end());
        depth(tree_.root);
        compare(avl_find_element(&tree_, probe.c_str(), item, node),
                map_.contains(probe) ? map_.lower_bound(probe) : map_.end());
        compare(avl_find_ge_element(&tree_, probe.c_str(), item, node), map_.lower_bound(probe));
        auto behind = map_.upper_bound(probe);
        const Item *less_equal = avl_find_le_element(&tree_, probe.c_str(), item, node);
        ASSERT_EQ(less_equal != nullptr, behind != map_.begin());
        if (less_equal) {
            EXPECT_EQ(less_equal->key, std::prev(behind)->first);
        }
    }
    size_t size() const { return map_.size(); }

private:
    using Map = std::multimap<std::string, std::unique_ptr<Item>>;
    void compare(const Item *found, Map::iterator expected)
    {
        ASSERT_EQ(found != nullptr, expected != map_.end());
        if (found) {
            EXPECT_EQ(found->serial, expected->second->serial);
        }
    }
    bool dups_;
    int serial_ = 0;
    avl_tree tree_;
    Map map_;
};

void exercise(bool dups, int keys)
{
    Model model(dups);
    std::mt19937 random(static_cast<uint32_t>(keys));
    for (int step = 0; step < 3000; step++) {
        const bool grow = step < 1500 ? random() % 3 != 0 : random() % 3 == 0;
        if (grow || !model.size()) {
            model.insert(std::to_string(random() % static_cast<uint32_t>(keys)));
        } else {
            model.remove(random());
        }
        if (step % 16 == 0) {
            model.check(std::to_string(random() % static_cast<uint32_t>(keys)));
        }
        if (::testing::Test::HasFatalFailure()) {
            return;
        }
    }
}

TEST(Avl, UniqueKeys)
{
    exercise(false, 2000);
}
TEST(Avl, UniqueKeysWithConflicts)
{
    exercise(false, 50);
}
TEST(Avl, RepeatedKeysKeepTheirOrder)
{
    exercise(true, 20);
}

struct Entry {
    list_head list;
    int value;
};

std::vector<int> values(list_head *head)
{
    std::vector<int> found;
    Entry *entry;
    list_for_each_entry(entry, head, list)
    {
        found.push_back(entry->value);
    }
    return found;
}

TEST(List, AddMoveSpliceDelete)
{
    LIST_HEAD(one);
    list_head two;
    INIT_LIST_HEAD(&two);
    Entry entries[5] = {};
    for (int i = 0; i < 5; i++) {
        entries[i].value = i;
        list_add_tail(&entries[i].list, i < 3 ? &one : &two);
    }
    EXPECT_EQ(values(&one), (std::vector<int>{0, 1, 2}));
    EXPECT_TRUE(list_is_first(&entries[0].list, &one));
    EXPECT_TRUE(list_is_last(&entries[2].list, &one));
    list_move(&entries[2].list, &one);
    EXPECT_EQ(values(&one), (std::vector<int>{2, 0, 1}));
    list_move_tail(&entries[2].list, &two);
    EXPECT_EQ(values(&two), (std::vector<int>{3, 4, 2}));
    list_splice_init(&two, &one);
    EXPECT_TRUE(list_empty(&two));
    EXPECT_EQ(values(&one), (std::vector<int>{3, 4, 2, 0, 1}));
    Entry *entry;
    Entry *next;
    list_for_each_entry_safe(entry, next, &one, list)
    {
        if (entry->value % 2 == 0) {
            list_del_init(&entry->list);
            EXPECT_TRUE(list_empty(&entry->list));
        }
    }
    EXPECT_EQ(values(&one), (std::vector<int>{3, 1}));
    list_del(&entries[3].list);
    EXPECT_EQ(entries[3].list.next, nullptr);
    list_add(&entries[3].list, &two);
    list_splice_tail(&one, &two);
    EXPECT_EQ(values(&two), (std::vector<int>{3, 1}));
}

TEST(Avl, OrderOfAttributes)
{
    blob_buf b = {};
    ASSERT_EQ(blob_buf_init(&b, 0), 0);
    for (const char *text : {"b", "a", "aa"}) {
        blob_put_string(&b, 1, text);
    }
    const auto *second = static_cast<blob_attr *>(blob_data(b.head));
    const blob_attr *first = blob_next(second);
    const blob_attr *third = blob_next(first);
    EXPECT_LT(avl_blobcmp(first, second, nullptr), 0);
    EXPECT_GT(avl_blobcmp(second, first, nullptr), 0);
    EXPECT_LT(avl_blobcmp(second, third, nullptr), 0);
    EXPECT_EQ(avl_blobcmp(third, third, nullptr), 0);
    blob_buf_free(&b);
}

} // namespace
