// Engine tracing: one text trace handle per table type, named after the table type and created
// when the library is loaded; every engine line reads "<table type> : <step><text>". Ring-buffer
// records name the table by its short name.
#pragma once

#include "Fwk/RingTrace.h"
#include "Fwk/Trace.h"

namespace Asic::Detail {

// A variable rather than a function holding a local static: a disabled trace check is then one
// load of the handle's level mask, not an out-of-line call.
template <class Table>
inline const Fwk::Trace::Handle engineTraceHandle{Table::kTypeName, false};

// The "SwTableStat" handle of every table's statistics line (purgeStaleEntries), created when
// the library is loaded.
const Fwk::Trace::Handle& statisticsTraceHandle();

}  // namespace Asic::Detail

// SW_TRACE(8, "handleEntry", " key: " << key): a line of the engine's handle for the table type
// `MutableTable` of the enclosing accessor (member functions only: the message's operands are
// copied when the line is traced).
#define SW_TRACE(level, step, message)                                    \
   FWK_TRACE_COPY(::Asic::Detail::engineTraceHandle<MutableTable>, level, \
                  MutableTable::kTypeName << " : " << step << message)

// SW_TRACE_ON(6): whether the engine's lines of that level are traced (never when compiled out).
#if defined(L3DECAP_TRACE_COMPILED_OUT)
#define SW_TRACE_ON(level) false
#else
#define SW_TRACE_ON(level) ::Asic::Detail::engineTraceHandle<MutableTable>.enabled(level)
#endif

// SW_RING_TRACE("entryRef"): the "{}: {}" record naming the table and the operation.
#define SW_RING_TRACE(operation) \
   FWK_RING_TRACE("{}: {}", operation, MutableTable::kShortName, std::string_view(operation))
