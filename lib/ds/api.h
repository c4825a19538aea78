// Marks a definition as part of the library's exported interface. Everything
// else is compiled with hidden visibility and stays private to the library.
#pragma once

#define VDS_API __attribute__((visibility("default")))
