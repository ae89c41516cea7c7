// The list container.
#include <gtest/gtest.h>
#include <vimbra/list.h>

#include <cstddef>
#include <set>
#include <vector>

namespace vimbra::tests {
namespace {

int g_values[400];

gpointer Value(int i) {
    return &g_values[i];
}

GList* Make(int count) {
    GList* list = nullptr;
    for (int i = 0; i < count; i++) {
        list = vimbra_g_list_append(list, Value(i));
    }
    return list;
}

void Clear(GList* list) {
    while (list != nullptr) {
        list = vimbra_g_list_remove(list, list->data);
    }
}

// The values from front to back, having looked at the links both ways.
std::vector<gpointer> Values(const GList* list) {
    std::vector<gpointer> values;
    const GList* before = nullptr;
    for (const GList* node = list; node != nullptr; node = node->next) {
        EXPECT_EQ(before, node->prev);
        values.push_back(node->data);
        before = node;
    }
    return values;
}

TEST(List, NodeIsDataNextPrev) {
    EXPECT_EQ(0u, offsetof(GList, data));
    EXPECT_EQ(sizeof(void*), offsetof(GList, next));
    EXPECT_EQ(2 * sizeof(void*), offsetof(GList, prev));
}

TEST(List, AppendToNullGivesASingleNode) {
    GList* list = vimbra_g_list_append(nullptr, Value(0));
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(Value(0), list->data);
    EXPECT_EQ(nullptr, list->next);
    EXPECT_EQ(nullptr, list->prev);
    Clear(list);
}

TEST(List, AppendGoesToTheEndAndKeepsTheList) {
    GList* list = Make(3);
    EXPECT_EQ(list, vimbra_g_list_append(list, Value(3)));
    // Any node stands for its list.
    EXPECT_EQ(list->next, vimbra_g_list_append(list->next, Value(4)));
    EXPECT_EQ(list, vimbra_g_list_append(list, nullptr));
    EXPECT_EQ((std::vector<gpointer>{Value(0), Value(1), Value(2), Value(3), Value(4), nullptr}),
              Values(list));
    Clear(list);
}

TEST(List, RemovingTheHeadGivesTheSecond) {
    GList* list = Make(3);
    GList* const second = list->next;
    list = vimbra_g_list_remove(list, Value(0));
    EXPECT_EQ(second, list);
    EXPECT_EQ(nullptr, list->prev);
    EXPECT_EQ((std::vector<gpointer>{Value(1), Value(2)}), Values(list));
    Clear(list);
}

TEST(List, RemovingFromMiddleAndEndKeepsTheList) {
    GList* const list = Make(4);
    EXPECT_EQ(list, vimbra_g_list_remove(list, Value(2)));
    EXPECT_EQ((std::vector<gpointer>{Value(0), Value(1), Value(3)}), Values(list));
    EXPECT_EQ(list, vimbra_g_list_remove(list, Value(3)));
    EXPECT_EQ((std::vector<gpointer>{Value(0), Value(1)}), Values(list));
    Clear(list);
}

TEST(List, OnlyTheFirstOccurrenceIsRemoved) {
    GList* list = Make(2);
    list = vimbra_g_list_append(list, Value(0));
    list = vimbra_g_list_remove(list, Value(0));
    EXPECT_EQ((std::vector<gpointer>{Value(1), Value(0)}), Values(list));
    Clear(list);
}

TEST(List, RemovalSearchesForwardOnly) {
    GList* const list = Make(3);
    EXPECT_EQ(list->next, vimbra_g_list_remove(list->next, Value(0)));
    EXPECT_EQ(3u, Values(list).size());
    // The node that is handed in goes; its predecessor is joined to its successor.
    GList* const last = list->next->next;
    EXPECT_EQ(last, vimbra_g_list_remove(list->next, Value(1)));
    EXPECT_EQ((std::vector<gpointer>{Value(0), Value(2)}), Values(list));
    Clear(list);
}

TEST(List, WhatIsNotThereIsNotRemoved) {
    EXPECT_EQ(nullptr, vimbra_g_list_remove(nullptr, Value(0)));
    GList* const list = Make(2);
    EXPECT_EQ(list, vimbra_g_list_remove(list, Value(7)));
    EXPECT_EQ(list, vimbra_g_list_remove(list, nullptr));
    EXPECT_EQ(2u, Values(list).size());
    Clear(list);
}

TEST(List, RemovingTheOnlyElementGivesNull) {
    EXPECT_EQ(nullptr, vimbra_g_list_remove(Make(1), Value(0)));
}

TEST(List, FirstOfAnyNodeIsTheHead) {
    EXPECT_EQ(nullptr, vimbra_g_list_first(nullptr));
    GList* const list = Make(5);
    for (GList* node = list; node != nullptr; node = node->next) {
        EXPECT_EQ(list, vimbra_g_list_first(node));
    }
    Clear(list);
}

TEST(List, ReleasedNodesAreHandedOutBeforeNewOnes) {
    GList* list = Make(300);
    std::set<GList*> released;
    for (int i = 100; i < 150; i++) {
        for (GList* node = list; node != nullptr; node = node->next) {
            if (node->data == Value(i)) {
                released.insert(node);
            }
        }
        list = vimbra_g_list_remove(list, Value(i));
    }
    ASSERT_EQ(50u, released.size());
    GList* other = nullptr;
    for (int i = 0; i < 50; i++) {
        other = vimbra_g_list_append(other, Value(i));
    }
    for (GList* node = other; node != nullptr; node = node->next) {
        EXPECT_EQ(1u, released.erase(node));
    }
    EXPECT_TRUE(released.empty());
    EXPECT_EQ(250u, Values(list).size());
    Clear(list);
    Clear(other);
}

TEST(List, NodesOfABlockLieSideBySide) {
    GList* const list = Make(128);
    const GList* node = list;
    for (int i = 0; i < 128; i++, node = node->next) {
        EXPECT_EQ(list + i, node);
    }
    Clear(list);
}

}  // namespace
}  // namespace vimbra::tests
