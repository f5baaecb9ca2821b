// Export marker for the platform libraries. The node is built with hidden visibility; the classes
// and functions it imports from the platform libraries must stay visible in those libraries.
#ifndef ZELK_PLATFORM_CHIPLATFORMAPI_H
#define ZELK_PLATFORM_CHIPLATFORMAPI_H

#define CHI_PLATFORM_API __attribute__((visibility("default")))

#endif // ZELK_PLATFORM_CHIPLATFORMAPI_H
