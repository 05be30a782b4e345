// EventBuilder: the events that tell the module of one recorded connection.
#pragma once

#include <functional>

#include "host/events/ConnectionRecord.h"
#include "host/import/RecordedConnection.h"

namespace Host::Import {

// Gets an event. False ends the delivery.
using EventSink = std::function<bool(const ConnectionRecord&)>;

// Gives `sink`, in this order: a new connection at the start time for each one counted; activity at the start time for
// each service; traffic at the end time, if there is one, split where a count passes 32 bits. False when the sink said
// so.
bool EmitEvents(const RecordedConnection& connection, const EventSink& sink);

}  // namespace Host::Import
