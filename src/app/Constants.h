#pragma once
// Fixed texts and the maker's addresses, kept in one place.

namespace nd {

inline constexpr const char *AppTitle = "Newsdredge!";
inline constexpr const char *VersionText = "3.8";

// The maker's web pages. The program only hands them to the desktop's browser.
inline constexpr const char *MakerName = "Newsdredge";
inline constexpr const char *UrlHome = "https://www.newsdredge.example/";
inline constexpr const char *UrlAccountSetup = "https://www.newsdredge.example/account/";
inline constexpr const char *UrlFreeAccount = "https://www.newsdredge.example/free-usenet/";
inline constexpr const char *UrlBandwidth = "https://www.newsdredge.example/bandwidth/";
inline constexpr const char *UrlMediaSearch = "https://www.newsdredge.example/media-search/";
inline constexpr const char *UrlDemo = "https://www.newsdredge.example/demo/";
inline constexpr const char *UrlSupport = "https://www.newsdredge.example/support/";
inline constexpr const char *UrlOpenServerList = "https://www.newsdredge.example/servers/open-servers.txt";
inline constexpr const char *SupportAddress = "support@newsdredge.example";

} // namespace nd
