# Writes OUTPUT, a C++ file that holds the page's files (app/rpc/page.h): what stands in WEB, and the catalogues of LANGUAGES.
# Run by the build: cmake -DWEB=folder -DLANGUAGES=folder -DOUTPUT=file -P EmbedPage.cmake

set(text "// Made by cmake/EmbedPage.cmake.\n#include \"app/rpc/page.h\"\n\nnamespace vantlow {\nnamespace {\n\n")
string(APPEND text "using namespace std::string_view_literals;\n\nconstexpr PageFile files[] = {\n")

# The bytes in HEX, named as the program serves them. Literals of 64 bytes each: no compiler minds them.
function(embed path hex)
    string(SHA256 tag "${hex}")
    string(SUBSTRING "${tag}" 0 16 tag)
    string(REGEX REPLACE "(..)" "\\\\x\\1" bytes "${hex}")
    string(REPEAT "\\\\x[0-9a-f][0-9a-f]" 64 line)
    string(REGEX REPLACE "(${line})" "\"\\1\"\n" bytes "${bytes}\"")
    string(REGEX REPLACE "(^|\n)(\\\\x[^\n]*\"$)" "\\1\"\\2" bytes "${bytes}")
    string(REGEX REPLACE "\n\"$" "" bytes "${bytes}")
    set(text "${text}    {\"/${path}\"sv,\n${bytes}sv,\n     \"\\\"${tag}\\\"\"sv},\n" PARENT_SCOPE)
endfunction()

file(GLOB_RECURSE paths RELATIVE "${WEB}" "${WEB}/*.html" "${WEB}/*.js" "${WEB}/*.css" "${WEB}/*.svg" "${WEB}/*.LICENSE")
list(SORT paths)
foreach(path IN LISTS paths)
    file(READ "${WEB}/${path}" hex HEX)
    embed("${path}" "${hex}")
endforeach()

file(GLOB catalogues RELATIVE "${LANGUAGES}" "${LANGUAGES}/*.lng")
list(SORT catalogues)
set(index "")
foreach(name IN LISTS catalogues)
    file(READ "${LANGUAGES}/${name}" hex HEX)
    embed("languages/${name}" "${hex}")
    string(REGEX REPLACE "\\.lng$" "\n" name "${name}")
    string(APPEND index "${name}")
endforeach()
string(HEX "${index}" hex)
embed("languages/index.txt" "${hex}")

string(APPEND text "};\n\n}  // namespace\n\nstd::span<const PageFile> page_files() noexcept {\n    return files;\n}\n\n")
string(APPEND text "}  // namespace vantlow\n")
file(WRITE "${OUTPUT}" "${text}")
