/*
 * Threads of the program. No state; any thread.
 */
#ifndef THREADS_H
#define THREADS_H

#include <functional>
#include <string>
#include <thread>

#include "Fault.h"

/*
 * Starts a thread.
 *   roThread  out  the thread
 *   rszName   in   what the system calls it, at most 15 bytes
 *   fnBody    in   what it does
 */
CFault Thread_Start(std::thread& roThread, const std::string& rszName, std::function<void()> fnBody);

/* The same without a name of its own; false when the system gives no thread or no memory. */
bool Thread_Make(std::thread& roThread, const std::function<void()>& rfnBody);

/* Gives the calling thread less of a loaded processor than ordinary ones get. */
void Thread_LowerPriority();

#endif
