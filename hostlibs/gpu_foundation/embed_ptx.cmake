# Writes the PTX text of the Motion kernels into a C++ source as a character array:
#   cmake -DPTX=in.ptx -DOUT=out.cpp -P embed_ptx.cmake
file(READ ${PTX} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
file(WRITE ${OUT} "// Generated from the Motion kernels' PTX; do not edit.\n"
                  "extern const char kGFMotionPtx[];\n"
                  "const char kGFMotionPtx[] = {${bytes} 0x00};\n")
