#pragma once

/// Takes the driver's words about an error, which are the callee's for the time of the call only. Called on
/// the thread whose GL call was in error, and by one thread at a time; it must make no GL call.
typedef void (*DeskGlErrorSink)(void* owner, const char* text);

#ifdef __cplusplus
extern "C" {
#endif

/// Has `sink` called with `owner` for every error that the driver under the desk's GL libraries reports, in
/// any context of the process, in place of any sink before. Null for none; once this returns the former sink
/// is not running and is not called again. Plain C, to be looked up by name.
void desk_gl_set_error_sink(DeskGlErrorSink sink, void* owner);

#ifdef __cplusplus
}
#endif
