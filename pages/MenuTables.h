#ifndef MENUTABLES_H
#define MENUTABLES_H

// The static menu item tables; item i is drawn on line i. The empty and blank
// entries are spacers: drawn and selectable, selecting them does nothing.

// Main menu. Its last entry is a twelve-blank placeholder that the main page
// points at its version text buffer, so the pointers are not const.
extern const char *main_menu_items[8];
// Testing menu.
extern const char *const testing_menu_items[4];
// Intensity menu.
extern const char *const intensity_menu_items[2];
// Setup menu.
extern const char *const setup_menu_items[9];

// The main menu's placeholder for the version text.
extern const char main_menu_version_placeholder[];
constexpr int MAIN_MENU_VERSION_INDEX = 7;

#endif // MENUTABLES_H
