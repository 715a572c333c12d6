#include "cow_BtreeInstantiations.h"

template class cow_BtreeValue<ZYLMsgBBMessage*>;
template class cow_BtreeValue<ZYLMsgBBMessageHandler*>;

template class cow_BtreeNode<cow_String, ZYLMsgBBMessage*>;
template class cow_Direct<cow_BtreeNode<cow_String, ZYLMsgBBMessage*>>;
template class cow_CountedHld<cow_BtreeNode<cow_String, ZYLMsgBBMessage*>>;
template class cow_COW<cow_BtreeNode<cow_String, ZYLMsgBBMessage*>>;
template class cow_Btree<cow_String, ZYLMsgBBMessage*>;
template class cow_BtreeNodeLink<cow_String, ZYLMsgBBMessage*>;
template class cow_BtreeIterator<cow_String, ZYLMsgBBMessage*>;

template class cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>;
template class cow_Direct<cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>>;
template class cow_CountedHld<cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>>;
template class cow_COW<cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>>;
template class cow_Btree<cow_String, ZYLMsgBBMessageHandler*>;
template class cow_BtreeNodeLink<cow_String, ZYLMsgBBMessageHandler*>;
template class cow_BtreeIterator<cow_String, ZYLMsgBBMessageHandler*>;

template class cow_BtreeNode<int, ZYLMsgBBMessage*>;
template class cow_Direct<cow_BtreeNode<int, ZYLMsgBBMessage*>>;
template class cow_CountedHld<cow_BtreeNode<int, ZYLMsgBBMessage*>>;
template class cow_COW<cow_BtreeNode<int, ZYLMsgBBMessage*>>;
template class cow_Btree<int, ZYLMsgBBMessage*>;
template class cow_BtreeNodeLink<int, ZYLMsgBBMessage*>;
template class cow_BtreeIterator<int, ZYLMsgBBMessage*>;
