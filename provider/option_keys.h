// The keys of the host's options, and their limits: the one place that spells them.
//
// A key of one script has two more forms. Its numbered form, for one of several scripts, has the script's number, from
// 1, behind the prefix: "python-import-2-file". Its form in a `.cfg` file is the key without the prefix: "file".

#ifndef RUBRUF_PROVIDER_OPTION_KEYS_H_
#define RUBRUF_PROVIDER_OPTION_KEYS_H_

#include <cstddef>

constexpr char kOptionPrefix[] = "python-import-";

// Keys of the whole provider.
constexpr char kAppIdOption[] = "python-import-app-id";
constexpr char kNumScriptsOption[] = "python-import-num-scripts";
constexpr char kConfigDirOption[] = "python-import-config-dir";
constexpr char kLogOutputOption[] = "python-import-log-output";
constexpr char kReleaseLockOption[] = "python-import-release-lock";
constexpr char kEnableProviderOption[] = "enable-provider";
constexpr char kDisableProviderOption[] = "disable-provider";

// Keys of one script. The argument's name follows the argument prefix; in the numbered form the number is between them.
constexpr char kFileOption[] = "python-import-file";
constexpr char kFunctionOption[] = "python-import-function";
constexpr char kTagOption[] = "python-import-tag";
constexpr char kForceSyncOption[] = "python-import-force-sync";
constexpr char kOwnModuleOption[] = "python-import-own-module";
constexpr char kTolerantOption[] = "python-import-tolerant";
constexpr char kArgumentPrefix[] = "python-import-arg-";
// Only in `.cfg` files.
constexpr char kEnableOption[] = "python-import-enable";

// "enable-provider" enables the provider by its own name if it contains this text anywhere.
constexpr char kProviderName[] = "python";
// The function of a script that names none.
constexpr char kDefaultFunction[] = "collect";
// The greatest number of scripts, because a script's index has eight bits.
constexpr size_t kMaxScripts = 256;

// The length of a constant text.
template <size_t kSize>
constexpr size_t LengthOf(const char (&)[kSize]) {
  return kSize - 1;
}

#endif  // RUBRUF_PROVIDER_OPTION_KEYS_H_
