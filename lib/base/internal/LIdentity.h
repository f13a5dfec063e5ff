// The names under which the library keeps what is its own.
#pragma once

#define LIdentityName "loginhelper"
#define LIdentityBundle "com.brelvanic." LIdentityName

constexpr char LIdentityDataFolder[] = LIdentityName;           // in the user's data folder
constexpr char LIdentityRunMarker[] = "_" LIdentityName "_rl_"; // before the user's login name
