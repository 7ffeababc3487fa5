# The component is built in layers, one static library per directory, each
# linked only to the layers below it:
#
#   platform -> typelib -> runtime -> model -> abap -> session
#            -> back ends (soap, nwrfc, rfc) -> server, bsp -> shell
#
# A layer sees the headers of its own directory and of the layers it links,
# nothing else: its include root holds one entry, a link named after the
# directory, so "session/x.h" resolves only where veltrane_session is linked.
# An include against the grain fails to compile (tests/layering proves it).
#
# Every layer is compiled with hidden visibility; only declarations marked
# VELTRANE_API leave libveltrane.so. Tests and tools link the layers they
# need directly. Layers link each other as whole archives, so that
# self-registering objects (the type library, the module's class table) are
# always part of whatever links them.

# veltrane_layer(NAME [DEPENDS layer...] [SOURCES file...])
# Defines the target veltrane_<NAME> from the sources of ${CMAKE_CURRENT_SOURCE_DIR}
# (all *.cpp when SOURCES is not given).
function(veltrane_layer name)
  cmake_parse_arguments(L "" "" "DEPENDS;SOURCES" ${ARGN})
  if(NOT L_SOURCES)
    file(GLOB L_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  endif()
  set(target veltrane_${name})
  add_library(${target} STATIC ${L_SOURCES})
  set(root ${CMAKE_BINARY_DIR}/layers/${name})
  file(MAKE_DIRECTORY ${root})
  if(NOT EXISTS ${root}/${name})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${name} SYMBOLIC)
  endif()
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
  foreach(dep ${L_DEPENDS})
    target_link_libraries(${target} PUBLIC "$<LINK_LIBRARY:WHOLE_ARCHIVE,veltrane_${dep}>")
  endforeach()
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()

# veltrane_link_layer(TARGET LAYER): a test, benchmark or tool that works on
# the component's internals links a layer (and so all layers below it) whole.
function(veltrane_link_layer target layer)
  target_link_libraries(${target} PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,veltrane_${layer}>")
endfunction()

# veltrane_creatable(NAME HEADER): the layer implements the creatable coclass
# NAME of the type library as the class C<NAME>, declared in HEADER (as the
# layer's headers are included: "soap/soap_session.h"). The shell's object map
# then creates it by its class id.
function(veltrane_creatable name header)
  set_property(GLOBAL APPEND PROPERTY VELTRANE_CREATABLE_CLASSES "${name}=${header}")
endfunction()
