# A subsystem's internal/ folder (Common/<subsystem>/internal/) is private to that subsystem:
# only its own sources, its own tests (tests/<subsystem>/), the benchmarks and the fuzzers may
# include "<subsystem>/internal/...". Helpers that several subsystems use live in
# Common/internal/ instead. Configuring fails on an include that crosses the line.
function(vantu_check_private_includes)
  file(GLOB_RECURSE files RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/Common/*.h ${PROJECT_SOURCE_DIR}/Common/*.cpp
    ${PROJECT_SOURCE_DIR}/include/*.h ${PROJECT_SOURCE_DIR}/include/*.hpp
    ${PROJECT_SOURCE_DIR}/tests/*.h ${PROJECT_SOURCE_DIR}/tests/*.cpp
    ${PROJECT_SOURCE_DIR}/tools/*.h ${PROJECT_SOURCE_DIR}/tools/*.cpp
    ${PROJECT_SOURCE_DIR}/examples/*.cpp)
  set(violations "")
  foreach(file IN LISTS files)
    file(STRINGS ${PROJECT_SOURCE_DIR}/${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"[a-z]+/internal/")
    foreach(include IN LISTS includes)
      string(REGEX MATCH "\"([a-z]+)/internal/" unused "${include}")
      set(owner ${CMAKE_MATCH_1})
      if(NOT file MATCHES "^(Common|tests)/${owner}/")
        string(STRIP "${include}" include)
        list(APPEND violations "  ${file}: ${include}")
      endif()
    endforeach()
  endforeach()
  if(violations)
    list(JOIN violations "\n" text)
    message(FATAL_ERROR "Private helpers included from outside their subsystem:\n${text}\n"
      "Move a helper that several subsystems need to Common/internal/.")
  endif()
endfunction()
