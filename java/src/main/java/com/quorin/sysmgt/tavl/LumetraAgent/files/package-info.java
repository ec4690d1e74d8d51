/**
 * What the agent and its host leave in files that other programs read as well: archive, reports on the largest
 * users, events.
 */
package com.quorin.sysmgt.tavl.LumetraAgent.files;
