// The message boxes of the administrative roles.
#pragma once

#include <windows.h>

#include <string>

// Loads string `id` of the string table and formats it with the arguments;
// a missing string gives an empty text.
std::string LoadFormat(UINT id, ...);

// A task-modal box with an OK button, titled with the product name, the text
// framed by string 200.
void ShowMessage(const std::string& text);

// The usage text, with an error line when `errorText` is given.
void ShowUsage(const char* errorText);

// Reports the result of an administrative role: the failure text with the
// system's message for a negative status, the success text otherwise.
void ReportResult(HRESULT status, UINT failureId, UINT successId);
