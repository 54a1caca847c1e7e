# Writes a C++ source that holds the files of a folder, for gateway/http/StaticFiles.h.
# Usage: cmake -DFOLDER=... -DOUTPUT=... [-DFUNCTION=...] -P EmbedFiles.cmake
# FUNCTION gives the files to the program, staticFiles by itself.
# A folder that is not there makes a source without files.

if(NOT FUNCTION)
  set(FUNCTION staticFiles)
endif()

set(types_html "text/html; charset=utf-8")
set(types_js "text/javascript; charset=utf-8")
set(types_css "text/css; charset=utf-8")
set(types_json "application/json")
set(types_svg "image/svg+xml")
set(types_png "image/png")
set(types_ico "image/x-icon")
set(types_woff2 "font/woff2")
set(types_txt "text/plain; charset=utf-8")
set(types_webmanifest "application/manifest+json")

get_filename_component(work ${OUTPUT} DIRECTORY)
set(work ${work}/page)
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work})
find_program(gzip gzip)

file(GLOB_RECURSE files RELATIVE ${FOLDER} ${FOLDER}/*)
list(SORT files)
set(blobs "")
set(rows "")
set(number 0)
foreach(file ${files})
  get_filename_component(extension ${file} LAST_EXT)
  string(REPLACE "." "" extension "${extension}")
  if(NOT DEFINED types_${extension})
    continue() # Such as source maps: not for browsers of users.
  endif()
  file(SHA256 ${FOLDER}/${file} hash)
  string(SUBSTRING ${hash} 0 32 hash)
  string(APPEND blobs "BLOB(${number}, \"${FOLDER}/${file}\")\n")
  set(small "{}")
  if(gzip)
    execute_process(COMMAND ${gzip} -9 -n -c ${FOLDER}/${file} OUTPUT_FILE ${work}/${number}.gz
                    COMMAND_ERROR_IS_FATAL ANY)
    file(SIZE ${FOLDER}/${file} size)
    file(SIZE ${work}/${number}.gz smallSize)
    if(smallSize LESS size)
      string(APPEND blobs "BLOB(${number}gz, \"${work}/${number}.gz\")\n")
      set(small "VIEW(${number}gz)")
    endif()
  endif()
  string(APPEND rows "      {\"/${file}\", \"${types_${extension}}\", VIEW(${number}), "
                     "\"\\\"${hash}\\\"\", ${small}},\n")
  math(EXPR number "${number} + 1")
endforeach()

file(
  WRITE ${OUTPUT}
  "// Made by cmake/EmbedFiles.cmake.
#include \"gateway/http/StaticFiles.h\"

#include <vector>

// The assembler copies the files in; the program reads them in place.
#define BLOB(NAME, FILE)                                                        \\
  __asm__(\".section .rodata\\n.balign 16\\ngk_page_\" #NAME \":\\n.incbin \\\"\" FILE    \\
          \"\\\"\\ngk_page_\" #NAME \"_end:\\n.byte 0\\n.previous\\n\");                  \\
  extern const char gk_page_##NAME[] __asm__(\"gk_page_\" #NAME)                  \\
      __attribute__((visibility(\"hidden\")));                                    \\
  extern const char gk_page_##NAME##_end[] __asm__(\"gk_page_\" #NAME \"_end\")     \\
      __attribute__((visibility(\"hidden\")));
#define VIEW(NAME)                                                              \\
  std::string_view(gk_page_##NAME,                                              \\
                   static_cast<std::size_t>(gk_page_##NAME##_end - gk_page_##NAME))

${blobs}
namespace gk::gateway {

std::span<const StaticFile> ${FUNCTION}();

std::span<const StaticFile> ${FUNCTION}() {
  static const std::vector<StaticFile> files = {
${rows}  };
  return files;
}

} // namespace gk::gateway
")
