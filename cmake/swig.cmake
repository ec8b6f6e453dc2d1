# Finds a SWIG whose runtime data version is 4. Other versions keep their types under another capsule and could not
# share pointer objects with the modules that hosts carry.
find_package(SWIG COMPONENTS python)
if(NOT SWIG_FOUND)
  message(FATAL_ERROR "SWIG is missing: run `pip install swig` at a version of 4.1 or 4.2, or install Debian's package swig")
endif()
if(SWIG_VERSION VERSION_LESS 4.1 OR SWIG_VERSION VERSION_GREATER_EQUAL 4.3)
  message(FATAL_ERROR "SWIG ${SWIG_VERSION} at ${SWIG_EXECUTABLE} will not do: the module needs 4.1 or 4.2, whose runtime "
                      "data version is 4")
endif()
