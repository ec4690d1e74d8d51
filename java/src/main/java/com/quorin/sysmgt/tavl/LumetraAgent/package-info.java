/**
 * The Java host of the Lumetra Agent: the classes that the native library binds to, the sink of its events,
 * and the program that runs the agent until it is asked to stop and tells its user what the agent sees.
 *
 * <p>The files of the agent are read here for display only; the native library alone writes them. Texts that
 * come from files are kept as one character per byte (ISO 8859-1) until they are printed, so that a name with
 * bytes that are no valid text is still the same name wherever it appears; {@link Words#ofBytes} turns them
 * into readable text.
 */
package com.quorin.sysmgt.tavl.LumetraAgent;
