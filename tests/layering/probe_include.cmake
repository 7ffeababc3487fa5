# cmake -DCXX=... -DINCLUDES=a|b|c -DLAYER=name -DOWN=header -DFORBIDDEN=h1|h2 -DWORK=dir -P probe_include.cmake
#
# Compiles a one-line source as the layer sees the tree: with the layer's own
# header it must compile; with a header of any layer above it, the compiler
# must fail for want of that header.
string(REPLACE "|" ";" includes "${INCLUDES}")
string(REPLACE "|" ";" forbidden "${FORBIDDEN}")
set(flags -std=c++20 -fsyntax-only)
foreach(dir ${includes})
  list(APPEND flags -I${dir})
endforeach()
file(MAKE_DIRECTORY ${WORK})

function(compile header result output)
  string(MAKE_C_IDENTIFIER ${header} id)
  set(source ${WORK}/${LAYER}_includes_${id}.cpp)
  file(WRITE ${source} "#include \"${header}\"\n")
  execute_process(COMMAND ${CXX} ${flags} ${source} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  set(${result} ${rc} PARENT_SCOPE)
  set(${output} "${out}${err}" PARENT_SCOPE)
endfunction()

compile(${OWN} rc text)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "layer ${LAYER}: its own header ${OWN} does not compile:\n${text}")
endif()
foreach(header ${forbidden})
  compile(${header} rc text)
  if(rc EQUAL 0)
    message(FATAL_ERROR "layer ${LAYER} can include ${header}, a header of a layer above it")
  endif()
  if(NOT text MATCHES "${header}: No such file or directory")
    message(FATAL_ERROR "layer ${LAYER} including ${header} failed, but not for want of the header:\n${text}")
  endif()
endforeach()
list(LENGTH forbidden n)
message(STATUS "layer ${LAYER}: own header compiles, ${n} headers of the layers above are out of reach")
