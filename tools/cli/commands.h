// The subcommands of the tool. Each returns the exit status; failures are
// thrown as UsageError or Failure.
#pragma once

#include <span>
#include <string>

#include "arguments.h"

namespace mergedb::cli {

std::span<const CommandSpec> commandList();
// The text of mergedb --help.
std::string overview();

int runTables(const Invocation &invocation);
int runFields(const Invocation &invocation);
int runDump(const Invocation &invocation);
int runFind(const Invocation &invocation);
int runInfo(const Invocation &invocation);
int runInsert(const Invocation &invocation);
int runUpdate(const Invocation &invocation);
int runDelete(const Invocation &invocation);
int runCreate(const Invocation &invocation);
int runConvert(const Invocation &invocation);
int runRecover(const Invocation &invocation);

}  // namespace mergedb::cli
