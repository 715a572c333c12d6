#include <gtest/gtest.h>

#include "ZYLMsgBBCallbackManager.h"
#include "cow_BtreeInstantiations.h"

namespace {

/// Operations that are private, so that only an exported instantiation can provide them.
template <class K, class V>
void UseFromTheLibrary(const K& key) {
    cow_Btree<K, V> map;
    EXPECT_TRUE(map.InsertUnlessMember(key, nullptr));
    EXPECT_EQ(map.Find(key), map.ConstFind(key));
    cow_BtreeIterator<K, V> iterator(map);
    iterator.Push(map.m_root);
    EXPECT_EQ(iterator.CurrentKey(), key);
    EXPECT_TRUE(map.Remove(key));
}

TEST(InstantiationTest, TheLibraryCarriesItsThreeTreeMaps) {
    UseFromTheLibrary<cow_String, ZYLMsgBBMessage*>("key");
    UseFromTheLibrary<cow_String, ZYLMsgBBMessageHandler*>("key");
    UseFromTheLibrary<int, ZYLMsgBBMessage*>(7);
}

}  // namespace
