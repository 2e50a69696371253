// A place where a test may use the system's fixed paths: a child process in mount, network and process
// namespaces of its own, with an empty /run and a /proc that shows it as process 1. Works as root, and as an
// ordinary user where the system allows user namespaces; elsewhere the test is skipped.
#pragma once

// Runs the test's work there. Failed expectations in it fail the running test.
void in_own_root(void (*work)());
