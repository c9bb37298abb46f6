# Run at install time: writes the installation's registry file, which names the
# installed properties file by its real path. Needs LMX_INSTALL_CONFIG_DIR (the
# configuration folder relative to the prefix); CMAKE_INSTALL_PREFIX is the prefix
# of this install (--prefix included), DESTDIR a staging root if any.
set(properties "${CMAKE_INSTALL_PREFIX}/${LMX_INSTALL_CONFIG_DIR}/lmxlog.properties")
# Quoted .reg strings escape backslashes and quotes.
string(REPLACE "\\" "\\\\" properties "${properties}")
string(REPLACE "\"" "\\\"" properties "${properties}")
set(registry "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${LMX_INSTALL_CONFIG_DIR}/lmsdk.reg")
message(STATUS "Installing: ${registry}")
file(WRITE "${registry}" "Windows Registry Editor Version 5.00

; Written at install time. Software\\Norvik\\LMSDK\\Logging names the properties
; file of the logging module; ConfigWatchDelay (milliseconds) is how often a change
; of it is looked for.
[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]
\"ConfigFile\"=\"${properties}\"
\"ConfigWatchDelay\"=dword:00001388
")
