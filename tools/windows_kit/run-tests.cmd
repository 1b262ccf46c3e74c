@echo off
rem Runs the launcher's test programs on this machine and leaves what they say in the folder "logs" beside this file.
rem
rem   run-tests          all but the tests that take real minutes
rem   run-tests all      everything
rem   run-tests smoke    the fast programs, and a few whole launches
rem
rem The exit code is 0 if every program succeeded. README.md says how long each takes, what may fail, and why.
setlocal
set "KIT=%~dp0"
set "SCOPE=%~1"
if "%SCOPE%"=="" set "SCOPE=usual"
if "%SCOPE%"=="usual" goto scope_is_known
if "%SCOPE%"=="all" goto scope_is_known
if "%SCOPE%"=="smoke" goto scope_is_known
echo usage: run-tests [all or smoke]
exit /b 2

:scope_is_known
set "LOGS=%KIT%logs"
if not exist "%LOGS%" mkdir "%LOGS%"
if not exist "%LOGS%" (
  echo There can be no folder "%LOGS%" here. Unpack the zip to a place that you can write to.
  exit /b 2
)
set "SUMMARY=%LOGS%\summary.txt"
set FAILURES=0
call :machine > "%LOGS%\machine.txt" 2>&1
rem Redirections stand first in their lines: a digit before one would name a stream.
> "%SUMMARY%" echo run-tests %SCOPE%

set "EXPLAIN_UNDER_TEST=%KIT%tests\explain\launcher-explain.exe"

rem The program, and the tests of each scope ("-": all but these; "none": not run).
call :program tests\json_tests.exe                               * * *
call :program tests\state_tests.exe                              * * *
call :program tests\runtime_library\runtime_library_tests.exe    * * *
call :program tests\slots_windows_tests.exe                      * * *
call :program tests\launcher\entry_point\entry_point_tests.exe   * * *
call :program tests\os\os_fault_tests.exe                        * * *
call :program tests\os\contract\os_contract_tests.exe            * * none
call :program tests\os\os_windows_tests.exe                      * * none
call :program tests\end_to_end\end_to_end_tests.exe              * -story*:slow* firstRun.*:exitCode.*
call :program tests\explain\explain_windows_tests.exe            * * *
call :program tests\conformance\conformance_tests.exe            * none none
call :program tests\call_faults\call_fault_tests.exe             * * none
call :program tests\end_to_end\kill_tests.exe                    * none none

echo.
type "%SUMMARY%"
echo.
echo %FAILURES% programs failed. All that was said is in "%LOGS%".
if not "%FAILURES%"=="0" exit /b 1
exit /b 0

rem :program PATH ALL USUAL SMOKE: runs one program with the tests of this scope. Its output goes to a file of its own.
:program
set "NAME=%~n1"
set "TESTS=%~2"
if "%SCOPE%"=="usual" set "TESTS=%~3"
if "%SCOPE%"=="smoke" set "TESTS=%~4"
if "%TESTS%"=="none" goto :eof
set "LOG=%LOGS%\%NAME%.log"
set "BEGUN=%TIME%"
echo running %NAME% ...
"%KIT%%~1" "--gtest_filter=%TESTS%" "--gtest_output=xml:%LOGS%\%NAME%.xml" > "%LOG%" 2>&1
set CODE=%ERRORLEVEL%
if "%CODE%"=="0" (
  >> "%SUMMARY%" echo passed  %NAME%, from %BEGUN% to %TIME%
) else (
  set /a FAILURES=FAILURES+1
  >> "%SUMMARY%" echo FAILED  %NAME%, from %BEGUN% to %TIME%, exit code %CODE%
)
>> "%SUMMARY%" findstr /B /L /C:"[  FAILED  ]" /C:"[  SKIPPED ]" "%LOG%"
goto :eof

rem What a failure may depend on.
:machine
echo kit version:
type "%KIT%VERSION"
ver
echo processor %PROCESSOR_IDENTIFIER%, %NUMBER_OF_PROCESSORS% cores
echo temporary folder %TEMP%
echo.
echo long paths (1: allowed):
reg query "HKLM\SYSTEM\CurrentControlSet\Control\FileSystem" /v LongPathsEnabled
echo developer mode (1: links may be made without elevation):
reg query "HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\AppModelUnlock" /v AllowDevelopmentWithoutDevLicense
echo rights of this user:
whoami /priv
echo groups of this user:
whoami /groups
echo volume of the kit:
fsutil fsinfo volumeinfo %~d0\
goto :eof
