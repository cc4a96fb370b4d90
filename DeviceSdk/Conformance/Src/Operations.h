// Which operations of the interface the library under test exports.
#ifndef OPERATIONS_H
#define OPERATIONS_H

#include <string>

/* The names of those that are missing, separated by commas; empty when all are there. */
std::string MissingOperations();

#endif
