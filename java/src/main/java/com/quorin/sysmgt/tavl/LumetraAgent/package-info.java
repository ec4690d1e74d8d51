/**
 * The Java side of the Lumetra Agent. Here are the classes that the native library knows by name and those that
 * other programs embed; the packages below are the host that comes with the library. A package uses only those
 * before it: text, (this one,) files, events, resource, watch, http, api, metrics, check, client, doctor, replay, host.
 *
 * <p>The files of the agent are read for display only; the native library alone writes them. Texts that come from
 * files and from the library are kept as one character per byte (ISO 8859-1) until they are printed, so that a
 * name with bytes that are no valid text is still the same name wherever it appears.
 */
package com.quorin.sysmgt.tavl.LumetraAgent;
