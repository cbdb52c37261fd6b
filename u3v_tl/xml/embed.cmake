# Turns one file into a C++ source that holds exactly its bytes, run at build time by cmake itself:
#   cmake -DINPUT=a.xml -DOUTPUT=a.cpp -DSYMBOL=kA -DHEADER=declares_kA.h -P embed.cmake
# One character literal per byte: no limit on the length of a literal, no escaping, no change of line ends.
file(READ "${INPUT}" bytes HEX)
string(REGEX REPLACE "(................................)" "\\1\n    " bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
get_filename_component(name "${INPUT}" NAME)
file(WRITE "${OUTPUT}" "// The bytes of ${name}; generated, changes are lost.
#include \"${HEADER}\"

namespace {

constexpr char kBytes[] = {
    ${bytes}
};

} // namespace

constinit const std::string_view ${SYMBOL}{kBytes, sizeof(kBytes)};
")
