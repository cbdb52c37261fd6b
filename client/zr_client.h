#pragma once

#include "zr_client_records.h"

#include <atomic>
#include <string>
#include <vector>

// The console client: menus over the exported functions, from the list of cameras to a running
// acquisition. All functions run on the main thread but the two thread bodies at the end. The texts
// are an interface of their own (scripts read them), as are the names that stand in them. It makes
// its calls itself, on purpose: it is a part of the library, and their order and number are fixed.

// ---- system and menus -------------------------------------------------------------------------

// The open System, null after a failure.
TL_HANDLE OpenSystem();
void CloseSystem(TL_HANDLE hTL);

// Lists interfaces and devices. An interface on which devices were found stays open, since the
// records of its devices refer to it, until CloseInterfaces; the others are closed at once.
std::vector<_ZRK_DEV_INFO> EnumDevices(TL_HANDLE hTL);
void CloseInterfaces(const std::vector<_ZRK_DEV_INFO>& devices);

// Menus return on their exit entry and on the end of input. Each closes what it opened.
void MainMenu(const std::vector<_ZRK_DEV_INFO>& devices);
void DeviceMenu(const _ZRK_DEV_INFO& device);
void OpenDeviceMenu(DEV_HANDLE hDevice, PORT_HANDLE hRemotePort);
void OpenDataStreamMenu(DS_HANDLE hDataStream, PORT_HANDLE hRemotePort);

// Writes the reboot key to the camera; what becomes of it is not reported.
void RebootCamera(PORT_HANDLE hRemotePort);

// ---- information ------------------------------------------------------------------------------

// Fill a record as far as the module answers; the first failing query's status, or 0.
GC_ERROR GetTLInfo(TL_HANDLE hTL, _ZRK_TL_INFO& info);
GC_ERROR GetIFInfo(IF_HANDLE hIface, _ZRK_IF_INFO& info);
GC_ERROR GetDEVInfo(IF_HANDLE hIface, const char* deviceId, _ZRK_DEV_INFO& info);
GC_ERROR GetPortInfo(PORT_HANDLE hPort, _ZRK_PORT_INFO& info);

void PrintTLInfo(const _ZRK_TL_INFO& info);
void PrintGenTLInfo(const _ZRK_TL_INFO& info);
void PrintIFInfo(const _ZRK_IF_INFO& info);
void PrintDevInfo(const _ZRK_DEV_INFO& info);
void PrintPortInfo(const _ZRK_PORT_INFO& info);

// Prints the port's first URL and saves a "local" document under its base name in the working
// directory. Returns the document's file name, for a "file" URL without reading it; else "".
std::string PrintPortXml(PORT_HANDLE hPort);

// ---- acquisition ------------------------------------------------------------------------------

// Set while the acquisition thread has to go on; cleared by the main thread to end it.
extern std::atomic<bool> Acq_thread_is_running;
// The same for EventThread.
extern std::atomic<bool> Event_thread_is_running;

void ImageAcquisitionStart(DS_HANDLE hDataStream, PORT_HANDLE hRemotePort);
void ImageAcquisitionStop(DS_HANDLE hDataStream, PORT_HANDLE hRemotePort);
// Whether a start has registered for new buffers and no stop has followed.
bool ImageAcquisitionIsStarted();
// Frees buffer memory that could not be revoked. Only after the device, which knows its address, is
// closed.
void ReleaseAcquisitionBuffers();

GC_ERROR GetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, _ZR_BUFFER_INFO* info);
GC_ERROR ZrStreamBufferGetInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, _ZR_BUFFER_INFO* info);
GC_ERROR ZrStreamWaitForNewBuffer(EVENT_HANDLE hEvent, uint64_t timeoutMs,
                                  EVENT_NEW_BUFFER_DATA* data);

// Thread bodies.
void ImageAcquisitionThread(DS_HANDLE hDataStream, EVENT_HANDLE hEvent);
// A spare reader of any event, for trying one out; nothing starts it.
void EventThread(EVENT_HANDLE hEvent);
