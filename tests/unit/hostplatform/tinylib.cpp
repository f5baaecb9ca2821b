// A library with one known symbol, loaded at run time by the library-mapping tests.
extern "C" __attribute__((visibility("default"))) int ChiHostTinyAnswer()
{
    return 42;
}
