// A library that a build of our libsapnwrfc.so needs, as SAP's needs libsapucum.so: both stand in
// one directory that the loader's search path does not name.
extern "C" __attribute__((visibility("default"))) int VsimCompanionAnswer() { return 42; }
