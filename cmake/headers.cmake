# What the public headers declare, as data: build/headers.json, and what is generated from it.
file(GLOB KESTREL_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/kestrel/*.h
     ${PROJECT_SOURCE_DIR}/include/kestrel/constants.def)
file(GLOB KESTREL_HEADER_TOOLS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/headers/*.py)

# kestrel_generate(<output> <generator module> [arguments...]): runs a generator of tools/headers.
function(kestrel_generate output generator)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -E env --modify PYTHONPATH=path_list_prepend:${PROJECT_SOURCE_DIR}/tools
            ${Python_EXECUTABLE} -m headers.${generator} --compiler ${CMAKE_C_COMPILER}
            --include ${PROJECT_SOURCE_DIR}/include --output ${output} ${ARGN}
    DEPENDS ${KESTREL_PUBLIC_HEADERS} ${KESTREL_HEADER_TOOLS}
    COMMENT "Generating ${output} from the headers"
    VERBATIM)
endfunction()
