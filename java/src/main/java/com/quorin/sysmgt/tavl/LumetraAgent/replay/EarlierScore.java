package com.quorin.sysmgt.tavl.LumetraAgent.replay;

import com.quorin.sysmgt.tavl.LumetraAgent.ReplayFeed;
import com.quorin.sysmgt.tavl.LumetraAgent.check.HomeFiles;
import com.quorin.sysmgt.tavl.LumetraAgent.files.OwnFile;
import com.quorin.sysmgt.tavl.LumetraAgent.score.Episode;
import com.quorin.sysmgt.tavl.LumetraAgent.score.ScoreFile;
import com.quorin.sysmgt.tavl.LumetraAgent.text.FileText;
import com.quorin.sysmgt.tavl.LumetraAgent.text.Words;
import java.io.IOException;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/** The score of a home's history from before it was kept. */
public final class EarlierScore {

    private EarlierScore() {}

    /**
     * Scores the archive of a home. The library must be loaded.
     *
     * @param before    what ends later, in seconds since the epoch, is left to others
     * @param take      receives each episode
     * @return from when on the archive tells, seconds since the epoch; 0 when it is empty
     * @throws HomeFiles.Unusable when the home's files are not there, cannot be read, or are none that the agent takes
     */
    public static long of(Path home, Path configuration, long before, Consumer<ScoreFile.Scored> take)
            throws HomeFiles.Unusable, IOException {
        if (ReplayFeed.problem().isPresent()) {
            return 0;
        }
        int user = OwnFile.user();
        HomeFiles.needGiven(configuration, "the configuration", user);
        HomeFiles files = HomeFiles.of(home, configuration);
        HomeFiles.needOwn(files.archive(), "the archive", user);
        Replay.Request request = new Replay.Request(List.of(FileText.bytes(files.archive())),
                HomeFiles.readGiven(files.declarations(), "the declarations", user),
                HomeFiles.readOwn(files.scratchPad(), "the scratch pad", user),
                new Replay.Settings(files.periodMillis(), files.minForecastHours(), files.maxForecastHours(), 1),
                List.of(), false, false);
        ReplayResult.Collector collector = new ReplayResult.Collector();
        try (Replay replay = new Replay(request)) {
            Replay.Step step;
            do {
                step = replay.step();
                collector.take(step);
            } while (!step.progress().isOver() && step.progress().to() < before);
            ReplayResult result = collector.result(request.settings(), replay.summary());
            Map<Integer, Replay.Tally> resources = new HashMap<>();
            result.summary().resources().forEach(r -> resources.put(r.id(), r));
            result.episodes().forEach((id, episodes) -> episodes.stream()
                    .filter(e -> e.end() != 0 && e.end() < before)
                    .forEach(e -> take.accept(scored(resources.get(id), e))));
            return result.progress().from();
        }
    }

    private static ScoreFile.Scored scored(Replay.Tally resource, Episode episode) {
        return new ScoreFile.Scored(Words.asFromLibrary(resource.resource()), Words.asFromLibrary(resource.instance()),
                episode);
    }
}
