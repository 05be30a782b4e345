// SystemCallFilter: makes one system call of this process fail, or end the process, from now on.
#pragma once

// For the child process of a death test: a filter cannot be taken away again. False when the kernel has no filters.
bool FailSystemCall(int number, int error);
bool EndProcessOnSystemCall(int number);
