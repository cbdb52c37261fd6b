# miniz: an installed package where the distribution has one (target miniz::miniz, pkg-config or plain library),
# else the sources that tools/setup unpacked into .deps/miniz. Provides zr_miniz. Placeholder until the finder is in.
add_library(zr_miniz INTERFACE)
