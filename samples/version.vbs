' Late-bound client of VnLinkhost: run with "cscript //nologo version.vbs".
Option Explicit
Dim host
Set host = CreateObject("VnLinkhost.VnLinkhostObject")
WScript.Echo "VnLinkhost version " & host.GetInfo("Version")
Set host = Nothing
