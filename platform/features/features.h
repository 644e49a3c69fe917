// Feature switches ("/etc/orbane/features.conf") and preferences ("/etc/orbane/preferences.conf").
//
// Both files hold lines `name = value`; blank lines and lines that begin with "#" are passed over, a value
// may stand in double quotes. A line that can't be read is left out and warned of; nothing in the files can
// keep the program from starting.
#pragma once

#include <string>

/// A table of pointers to flag bytes: 0 is off. Unnamed entries point to an always-off byte.
inline constexpr int kFeatureCount = 120;
extern unsigned char const* const FeatureList[kFeatureCount];

/// Indices into FeatureList. Stored nowhere; fixed by the callers' agreement.
enum FeatureIndex : int {
  kFeatureQuickPatch = 43,
  kFeatureQuickPatchTool = 44,
  kFeatureConfigImpact = 113,
  kFeatureConfigCompliance = 116,
  kFeatureValidateStrict = 117,
  kFeatureClusterContextSupport = 118,
  kFeatureHostKeys = 119,
};

/// Reads the switches without reporting; unknown names are remembered. Entry thread, before others start.
void FeatureState_InitSilentMode();
/// Reads them again and logs what differs from the defaults, and the unknown names as warnings. Entry thread.
void FeatureState_InitDeltaMode();
/// By index, outside the table false.
bool GetFeatureState_Slow(int index);
/// The flag byte of a switch by its name ("HostKeys"), null when there is none of that name.
unsigned char const* GetFeatureState_Slow(char const* name);

/// Reads the preferences; called again, it reads them anew. Entry thread.
void Preference_Init();
/// The value of a preference that is a path; `fallback` when it is not set or not absolute. A null `fallback`
/// gives the empty text.
std::string Preference_GetPathName(char const* fallback, char const* name);
