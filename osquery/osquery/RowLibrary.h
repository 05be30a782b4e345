// RowLibrary: what rows need of libprotobuf beyond the message's own code.
#pragma once

#include <string>

#include "Velmar/Types.h"

class edr_netdb;

namespace google::protobuf {
class Descriptor;
}

namespace RYL::NetDB::OSQuery {

// The library makes its tables at their first use, and is not fit to be asked again once that ended without memory. So
// it is asked once in the life of the process, and what failed then has failed for good.
//
// All but EndRowLibrary are thread-safe.

// Keeps the library from writing to the process's stderr.
void SilenceLibrary();
// The fields of a row. Null (level 5) when there was no memory for them, and after EndRowLibrary.
const google::protobuf::Descriptor* RowDescriptor();
// Whether RenderRow may be called; level 5 when there was no memory for it, and after EndRowLibrary.
bool CanRenderRows();
// Puts the row as JSON into `json`. `encodedSize`: its size as a message, or more. Throws std::bad_alloc.
void RenderRow(const edr_netdb& row, u64 encodedSize, std::string& json);
// Frees what the library holds, for good. No output may be in use.
void EndRowLibrary();

}  // namespace RYL::NetDB::OSQuery
