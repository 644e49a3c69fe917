// Feature switches ("/etc/orbane/features.conf") and preferences ("/etc/orbane/preferences.conf").
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

/// Reads the switches without reporting; unknown names are remembered.
void FeatureState_InitSilentMode();
/// Reads them again and logs what differs from the defaults, and the unknown names as warnings.
void FeatureState_InitDeltaMode();
/// By index, outside the table false.
bool GetFeatureState_Slow(int index);

void Preference_Init();
/// The value of a preference that is a path; `fallback` when it is not set.
std::string Preference_GetPathName(char const* fallback, char const* name);
