# What `cmake --install` puts into place: the three libraries, their headers in one folder, the operator's program, and a
# package for other builds, which say find_package(ZYLMsgModules) and link ZYL::ZYLMsgModules.
include(CMakePackageConfigHelpers)

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/ZYLMsgModules)

install(TARGETS ZYLPlatform ZYLFoundation ZYLFeaBackbone ZYLMsgModules EXPORT ZYLMsgModules
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS zylmsg RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY platform/include/ foundation/ ZYLMsgFeaMessaging/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zylmsg
        FILES_MATCHING PATTERN "*.h")
install(EXPORT ZYLMsgModules NAMESPACE ZYL:: FILE ZYLMsgModulesConfig.cmake DESTINATION ${package})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZYLMsgModulesConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ZYLMsgModulesConfigVersion.cmake DESTINATION ${package})
