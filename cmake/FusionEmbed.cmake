# fusion_embed(<source> <header> <function> <file>...): writes a source with the files in it, and with the function that
# the header declares: it answers a file's text by the file's name. Written anew when one of them has changed.
function(fusion_embed source header function)
  set(arrays)
  set(answers)
  foreach(file ${ARGN})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    get_filename_component(name ${file} NAME)
    string(MAKE_C_IDENTIFIER ${name} array)
    file(READ ${file} bytes HEX)
    # Ends of lines are those of the checkout, and a page's are not.
    string(REGEX REPLACE "(..)" "\\1 " bytes "${bytes}")
    string(REPLACE "0d 0a " "0a " bytes "${bytes}")
    string(REGEX REPLACE "(..) " "0x\\1," bytes "${bytes}")
    string(REGEX REPLACE "(................................................................................)" "\\1\n  " bytes
                         "${bytes}")
    string(APPEND arrays "const unsigned char k_${array}[] = {\n  ${bytes}};\n")
    string(APPEND answers "  if (name == \"${name}\") return {std::begin(k_${array}), std::end(k_${array})};\n")
  endforeach()
  file(
    CONFIGURE
    OUTPUT ${source}
    CONTENT
      "#include \"${header}\"\n\n#include <iterator>\n\nnamespace fusion {\nnamespace {\n\n${arrays}\n}  // namespace\n
std::string ${function}(const std::string& name) {\n${answers}  return {};\n}\n\n}  // namespace fusion\n"
    @ONLY)
endfunction()
