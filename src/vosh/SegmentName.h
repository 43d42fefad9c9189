#pragma once
// Names of the shared-memory segments behind mounted paths.
//
// A path's first generation is "/<prefix>.<path with '/' as '.'>"; each later
// generation adds ".g<N>". The prefix keeps agents, and tests, that share a
// machine out of each other's way. Finding a path's newest generation lists
// the directory where the system keeps shared memory; that happens at mount
// and on a remap, never per operation.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vosh {

std::string segmentBaseName(std::string_view prefix, std::string_view path);
std::string segmentGenerationName(std::string_view baseName, uint32_t generation);
// The generations of a base name present now, ascending.
std::vector<uint32_t> segmentGenerationsPresent(std::string_view baseName);
// Every segment name ("/...") under a prefix.
std::vector<std::string> segmentNamesUnder(std::string_view prefix);
// The memory those segments hold, added up: the pages written, not the
// slots reserved.
uint64_t segmentBytesUnder(std::string_view prefix);

}  // namespace Vosh
