# Login shells look into /etc/profile.d and nowhere else; a private prefix keeps to itself.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
    set(profile_folder "/etc/profile.d")
else()
    set(profile_folder "${CMAKE_INSTALL_PREFIX}/etc/profile.d")
endif()
