// A DLL of nothing but forwarded exports still needs something to compile.
typedef int forwarder;
