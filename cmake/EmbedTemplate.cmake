# gk_embed_template(FOLDER OUTPUT): writes a C++ source with the files of the folder for
# app/authors/ModuleTemplate.h.
function(gk_embed_template folder output)
  file(GLOB_RECURSE files CONFIGURE_DEPENDS RELATIVE ${folder} ${folder}/*)
  list(SORT files)
  set(rows "")
  foreach(file ${files})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${folder}/${file})
    file(READ ${folder}/${file} text)
    # What begins with a dot would be hidden among our sources.
    string(REGEX REPLACE "^gitignore$" ".gitignore" name ${file})
    string(APPEND rows "    {\"${name}\", R\"gktemplate(${text})gktemplate\"},\n")
  endforeach()
  file(GENERATE OUTPUT ${output} CONTENT "// Made by cmake/EmbedTemplate.cmake.
#include \"app/authors/ModuleTemplate.h\"

namespace gk::app {

namespace {

constexpr TemplateFile kModuleTemplate[] = {
${rows}};

} // namespace

std::span<const TemplateFile> moduleTemplate() {
  return kModuleTemplate;
}

} // namespace gk::app
")
endfunction()
