# What the libraries export: everything that is promised to be a symbol, and nothing of the C++ runtime's.
set(symbols)
foreach(library IN LISTS LIBRARIES)
  execute_process(COMMAND ${NM} -D --defined-only ${library} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE exported)
  string(REGEX MATCHALL "_Z(T[ISTV]|G[RV]Z?|Z)?N?K?(S|9__gnu_cxx)[^\n]*" foreign "${exported}")
  if(foreign)
    message(SEND_ERROR "${library} exports what is the runtime's: ${foreign}")
  endif()
  string(APPEND symbols "${exported}")
endforeach()
foreach(promised IN ITEMS
    _ZN23mem_AllocationOperatorsnwEm _ZN23mem_AllocationOperatorsdlEPv _Znam16mem_BuiltInAlloc
    _ZN17ZYLMsgStreamUtils15StreamZYLStringERK9ZYLStringPcRi
    _ZN10cow_StringC1EPKc _ZN10cow_StringC1ERKS_ _ZN10cow_StringD1Ev _ZNK10cow_String4CStrEv _Z12BtreeCompareRK10cow_StringS1_
    _ZN17ZYLSimRpm_Swapper17ExternalizeScalarIiEEjPcRKT_ _ZN15ZYLBasSharedPtrI15ZYLMsgBBMessageED1Ev
    _ZN9cow_BtreeI10cow_StringP15ZYLMsgBBMessageE4FindERKS0_ _ZN9cow_BtreeI10cow_StringP22ZYLMsgBBMessageHandlerE4FindERKS0_
    _ZN17cow_BtreeIteratorIiP15ZYLMsgBBMessageE5FirstEv _ZN9cow_BtreeIiP15ZYLMsgBBMessageE4FindERKi
    _ZTI15ZYLMsgBBMessage DllMain ZYLMsgModules_initializeC SendRequest)
  if(NOT symbols MATCHES " [TVW] ${promised}\n")
    message(SEND_ERROR "no library exports ${promised}")
  endif()
endforeach()
