# Installs BUILD below WORK, builds the consumer with it, and runs that: nobody is there to send to, which it is told.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET ERROR_VARIABLE said)
  set(said "${said}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/installed)
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${CMAKE_CURRENT_LIST_DIR}/consumer -B ${WORK}/consumer
    -D CMAKE_PREFIX_PATH=${WORK}/installed -D CMAKE_CXX_COMPILER=${COMPILER} -D EXAMPLE=${EXAMPLE})
run(${CMAKE_COMMAND} --build ${WORK}/consumer)
run(${CMAKE_COMMAND} -E env ZYL_BACKBONE_DIR=${WORK}/backbone ZYL_BACKBONE_CONNECT_TIMEOUT=0 ${WORK}/consumer/consumer)
if(NOT said MATCHES "for application 'receiver' in domain 'hello' is dropped")
  message(FATAL_ERROR "the consumer said: ${said}")
endif()
