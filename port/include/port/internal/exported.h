// What the instantiation of a function template stands behind when the function is one of a public header: g++
// forgets, when it meets the definition, that the declaration was exported.
#pragma once

#define PORT_EXPORTED __attribute__((visibility("default")))
