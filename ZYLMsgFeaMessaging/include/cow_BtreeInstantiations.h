#ifndef COW_BTREEINSTANTIATIONS_H
#define COW_BTREEINSTANTIATIONS_H

#include "ZYLMsgModulesExport.h"
#include "cow_Btree.h"
#include "cow_BtreeIterator.h"
#include "cow_String.h"

/// The tree maps that ZYLMsgModules instantiates and exports, so that a program and the library share one
/// copy of their code: names to messages, names to message handlers, and numbers to messages. Include this
/// header wherever one of these maps is used.

class ZYLMsgBBMessage;
class ZYLMsgBBMessageHandler;

// Declare each class before its first use: a class that is already instantiated can no longer be exported.
extern template class ZYLMSGMODULES_EXPORT cow_BtreeValue<ZYLMsgBBMessage*>;
extern template class ZYLMSGMODULES_EXPORT cow_BtreeValue<ZYLMsgBBMessageHandler*>;

extern template class ZYLMSGMODULES_EXPORT cow_BtreeNode<cow_String, ZYLMsgBBMessage*>;
extern template class ZYLMSGMODULES_EXPORT cow_Direct<cow_BtreeNode<cow_String, ZYLMsgBBMessage*>>;
extern template class ZYLMSGMODULES_EXPORT cow_CountedHld<cow_BtreeNode<cow_String, ZYLMsgBBMessage*>>;
extern template class ZYLMSGMODULES_EXPORT cow_COW<cow_BtreeNode<cow_String, ZYLMsgBBMessage*>>;
extern template class ZYLMSGMODULES_EXPORT cow_Btree<cow_String, ZYLMsgBBMessage*>;
extern template class ZYLMSGMODULES_EXPORT cow_BtreeNodeLink<cow_String, ZYLMsgBBMessage*>;
extern template class ZYLMSGMODULES_EXPORT cow_BtreeIterator<cow_String, ZYLMsgBBMessage*>;

extern template class ZYLMSGMODULES_EXPORT cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>;
extern template class ZYLMSGMODULES_EXPORT cow_Direct<cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>>;
extern template class ZYLMSGMODULES_EXPORT cow_CountedHld<cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>>;
extern template class ZYLMSGMODULES_EXPORT cow_COW<cow_BtreeNode<cow_String, ZYLMsgBBMessageHandler*>>;
extern template class ZYLMSGMODULES_EXPORT cow_Btree<cow_String, ZYLMsgBBMessageHandler*>;
extern template class ZYLMSGMODULES_EXPORT cow_BtreeNodeLink<cow_String, ZYLMsgBBMessageHandler*>;
extern template class ZYLMSGMODULES_EXPORT cow_BtreeIterator<cow_String, ZYLMsgBBMessageHandler*>;

extern template class ZYLMSGMODULES_EXPORT cow_BtreeNode<int, ZYLMsgBBMessage*>;
extern template class ZYLMSGMODULES_EXPORT cow_Direct<cow_BtreeNode<int, ZYLMsgBBMessage*>>;
extern template class ZYLMSGMODULES_EXPORT cow_CountedHld<cow_BtreeNode<int, ZYLMsgBBMessage*>>;
extern template class ZYLMSGMODULES_EXPORT cow_COW<cow_BtreeNode<int, ZYLMsgBBMessage*>>;
extern template class ZYLMSGMODULES_EXPORT cow_Btree<int, ZYLMsgBBMessage*>;
extern template class ZYLMSGMODULES_EXPORT cow_BtreeNodeLink<int, ZYLMsgBBMessage*>;
extern template class ZYLMSGMODULES_EXPORT cow_BtreeIterator<int, ZYLMsgBBMessage*>;

#endif
