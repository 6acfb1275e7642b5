// The same message again, in a second file.
void second() { throw "Size must be a power of 2."; }
