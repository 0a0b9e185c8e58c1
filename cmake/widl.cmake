# vn_widl(<target> <idl>): runs widl for the header, the interface ids and the
# type library, and makes an object library <target> of the ids.
function(vn_widl target idl)
  get_filename_component(base ${idl} NAME_WE)
  set(out ${CMAKE_BINARY_DIR}/idl)
  file(MAKE_DIRECTORY ${out})
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(arch -m64)
  else()
    set(arch -m32)
  endif()
  add_custom_command(
    OUTPUT ${out}/${base}.h ${out}/${base}_i.c ${out}/${base}.tlb
    COMMAND ${VN_WIDL} ${arch} -I/usr/${VN_TRIPLE}/include -h -o ${out}/${base}.h ${idl}
    COMMAND ${VN_WIDL} ${arch} -I/usr/${VN_TRIPLE}/include -u -o ${out}/${base}_i.c ${idl}
    COMMAND ${VN_WIDL} ${arch} -I/usr/${VN_TRIPLE}/include -t -o ${out}/${base}.tlb ${idl}
    DEPENDS ${idl}
    COMMENT "widl ${base}.idl")
  add_custom_target(${target}_gen DEPENDS ${out}/${base}.h ${out}/${base}_i.c ${out}/${base}.tlb)
  add_library(${target} OBJECT ${out}/${base}_i.c)
  add_dependencies(${target} ${target}_gen)
  set(VN_IDL_INCLUDE_DIR ${out} PARENT_SCOPE)
  set(VN_IDL_TLB ${out}/${base}.tlb PARENT_SCOPE)
endfunction()
