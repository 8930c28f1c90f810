# Preprocesses each public header alone, with only include/ on the include path, and fails when
# one includes what cannot be found that way or reaches a header of a dependency (POCO, pugixml,
# curl, utf8proc, zlib, minizip): a user of the library needs none of their headers. Preprocessing
# lists every header opened at a tenth of a compile's cost; the consumer build compiles them.
#   cmake -DCOMPILER=<c++ compiler> -DINCLUDE_DIR=<include> -P check-public-headers.cmake
file(GLOB headers "${INCLUDE_DIR}/vantu/*.h" "${INCLUDE_DIR}/vantu/*.hpp")
set(dependency "/(Poco|pugixml[^/]*|curl|minizip)/|/(pugixml|pugiconfig|utf8proc|zlib|zconf|unzip|zip|ioapi)\\.h")
set(failures 0)
foreach(header IN LISTS headers)
  # -M lists every header the preprocessor opens.
  execute_process(COMMAND "${COMPILER}" -std=c++17 -M -I "${INCLUDE_DIR}" -x c++ "${header}"
                  RESULT_VARIABLE result OUTPUT_VARIABLE opened ERROR_VARIABLE opened)
  string(REGEX MATCH "[^\n]*(${dependency})[^\n]*" reached "${opened}")
  if(NOT result EQUAL 0)
    message(SEND_ERROR "${header} does not preprocess alone:\n${opened}")
    math(EXPR failures "${failures} + 1")
  elseif(reached)
    message(SEND_ERROR "${header} includes a dependency's header: ${reached}")
    math(EXPR failures "${failures} + 1")
  endif()
endforeach()
list(LENGTH headers count)
if(count EQUAL 0)
  message(FATAL_ERROR "no public headers in ${INCLUDE_DIR}/vantu")
endif()
message(STATUS "${count} public headers checked, ${failures} failed")
