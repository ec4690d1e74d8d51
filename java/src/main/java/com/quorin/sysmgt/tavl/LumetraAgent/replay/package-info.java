/** Recorded archives replayed through the agent's own prediction, and what that shows. */
package com.quorin.sysmgt.tavl.LumetraAgent.replay;
