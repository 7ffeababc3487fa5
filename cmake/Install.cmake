# Installation: library, public headers, pkg-config file and CMake package.
