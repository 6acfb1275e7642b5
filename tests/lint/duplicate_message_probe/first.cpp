// A message written twice, for the check's own test.
void first() { throw "Size must be a power of 2."; }
