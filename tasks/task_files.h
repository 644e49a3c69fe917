// The files of the task area, shared with the host tools. All lie in one directory that is root's.
#pragma once

namespace LifeCycle {

/// Root name of the task store. Never opened itself: the database is this with ".db" appended.
inline constexpr char kTaskStorePath[] = "/var/orbane/lifecycle/task-status.json";
/// The task database.
inline constexpr char kTaskDatabasePath[] = "/var/orbane/lifecycle/task-status.json.db";
/// The task sync file: while it exists, an operation is starting or running.
inline constexpr char kTaskSyncFile[] = "/var/orbane/lifecycle/lifecycle.task";
/// The second sync file, of the host settings apply alone. Not cleaned at start, since its tool may outlive
/// the daemon.
inline constexpr char kApplyPidFile[] = "/var/orbane/lifecycle/lifecycle.apply.pid";
/// The directory of these and of the documents for the tools; ends in a slash.
inline constexpr char kStateDirectory[] = "/var/orbane/lifecycle/";

/// The `retries` of every call into the task database.
inline constexpr int kTaskDatabaseRetries = 5;

}  // namespace LifeCycle
