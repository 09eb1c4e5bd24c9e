// The language in which the tool speaks to the session's user.
#pragma once

// Sets the calling thread's UI language: the one chosen for the client's user interface, else the
// user's default UI language. True when the system took exactly the chosen language; otherwise the
// thread's language is as the system left it. Called once per run, before any string is loaded.
bool SetUiLanguage();
