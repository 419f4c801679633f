# mendwork_type_library(): makes Mendwork.tlb and the C++ header Mendwork_TLB.h from the interface definition, both in
# the build folder, and a target `mendwork_interfaces` that puts the header's folder on the include path.
find_program(WIDL ${MENDWORK_ARCH}-w64-mingw32-widl REQUIRED)
set(MENDWORK_GENERATED ${CMAKE_BINARY_DIR}/generated/server)
set(idl Mendwork.idl) # named from its own folder: widl writes the name into the header
# The interface definitions and stdole2.tlb of Wine's development packages.
set(widl_flags -I/usr/include/wine/wine/windows -L/usr/lib/x86_64-linux-gnu/wine/x86_64-windows)
file(MAKE_DIRECTORY ${MENDWORK_GENERATED})
add_custom_command(
  OUTPUT ${MENDWORK_GENERATED}/Mendwork_TLB.h ${MENDWORK_GENERATED}/Mendwork.tlb
  COMMAND ${WIDL} ${widl_flags} -h -o ${MENDWORK_GENERATED}/Mendwork_TLB.h ${idl}
  COMMAND ${WIDL} ${widl_flags} -t -o ${MENDWORK_GENERATED}/Mendwork.tlb ${idl}
  DEPENDS ${CMAKE_SOURCE_DIR}/src/server/${idl}
  WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/src/server
  VERBATIM)
add_custom_target(mendwork_type_library
  DEPENDS ${MENDWORK_GENERATED}/Mendwork_TLB.h ${MENDWORK_GENERATED}/Mendwork.tlb)
add_library(mendwork_interfaces INTERFACE)
target_include_directories(mendwork_interfaces INTERFACE ${CMAKE_BINARY_DIR}/generated)
add_dependencies(mendwork_interfaces mendwork_type_library)
