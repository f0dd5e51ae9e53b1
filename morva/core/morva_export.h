#pragma once

// Marks what the shared library hands out; everything else keeps hidden visibility.
#define MORVA_API __attribute__((visibility("default")))
