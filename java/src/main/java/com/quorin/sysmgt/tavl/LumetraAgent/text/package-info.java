/** Texts of bytes and texts for people, and what all commands of the program share. */
package com.quorin.sysmgt.tavl.LumetraAgent.text;
