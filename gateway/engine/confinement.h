// The rights of a process that reads hostile frames: those that it needs, and no others. Where the
// build has neither libcap-ng nor libseccomp, or both refuse, it goes on with what it has, and says
// so.
#pragma once

namespace idpfwd {

// What the engine needs beyond its files and its callers' connections.
struct Needs {
    bool packets = false;       // opens an interface, also again when it has gone and come back
    bool callersMemory = false; // reads and writes that of processes which wait in an ioctl
};

// Drops every capability but those needed, in every set, also for programs that would be started;
// and forbids new privileges. For this thread and those that it starts, so before there are any.
void dropRights(const Needs &needs);

// Ends the process (SIGSYS) at the first system call that an engine at work does not make: no
// program is started, no process made, no connection opened, no memory made executable. For all
// threads. Builds with sanitizers, which call more, are not filtered.
void filterCalls(const Needs &needs);

} // namespace idpfwd
