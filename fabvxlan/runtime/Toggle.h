#pragma once
// Feature toggles. A toggle is on or off for the life of the process: callers
// read it once, through a function-local static.
//
// Sources, first match wins:
//  1. the environment variable FABVXLAN_TOGGLE_<name>, "on" or "off"
//     (also 1/0, true/false);
//  2. the toggle file named by FABVXLAN_TOGGLE_FILE, lines "<name>=on|off",
//     blank lines and lines starting with '#' ignored;
//  3. the default the caller gives.

// Whether the named toggle is on.
bool getToggleState(char const* name, bool defaultState);
